#pragma once

// The library keeps no version control of its skills' own, so a repository inside a folder that is replaced would be
// lost with it.

#include <filesystem>
#include <string>

namespace orvanta {

// Throws `refused` when the folder, or one below it, holds a Git repository; `advice` says what to do then. Links are
// not looked into: when one is replaced, nothing of what it points to is lost. Nothing is wrong with no folder.
void refuseRepository(const std::filesystem::path& folder, const std::string& advice);

}  // namespace orvanta
