#pragma once

// Unpacks skill archives (ZIP files named .zip or .skill). Whoever made the archive is not trusted: it is examined
// before anything is unpacked, and watched while it is, because what it says about itself may be a lie.

#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace orvanta::Archive {

struct Limits {
  // Unpacked bytes of all files together.
  std::int64_t maxBytes = std::int64_t{512} << 20;
  // Files and folders together.
  std::int64_t maxEntries = 10'000;
};

// Unpacks `archive` into the new folder `into`, whose parent exists and belongs to the caller alone (unzip's
// view of the archive lies there meanwhile). Afterwards everything below `into` is a folder, a regular file or a
// symbolic link; its owner may read and change all of it, nobody else may change it, and nothing has a set-user-id bit
// or the like.
//
// Throws `notFound` when there is no archive, `invalidInput` for one that is no ZIP, damaged, encrypted, hostile or
// beyond the limits, and `io` for everything else, a requested stop included. On failure nothing is left at `into`,
// except where something stood there before, which stays untouched.
void extract(const std::filesystem::path& archive, const std::filesystem::path& into, const Limits& limits = {},
             const std::stop_token& stop = {});

// Removes every symbolic link below `folder`, never what a link points at. Throws `io`.
void stripSymlinks(const std::filesystem::path& folder);

}  // namespace orvanta::Archive
