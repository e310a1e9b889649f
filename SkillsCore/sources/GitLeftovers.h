#pragma once

// What a git that was killed leaves in its repository: lock files, which every later git takes for those of a living
// one and refuses to work, and half-written objects.

#include <filesystem>

namespace orvanta {

// Removes them, unless a git is at work there: then its lock is waited for a moment. To be called by whoever keeps
// other processes of ours away. Throws `conflict` when another git keeps a lock, and `io` when one cannot be removed.
void clearGitLeftovers(const std::filesystem::path& gitFolder);

}  // namespace orvanta
