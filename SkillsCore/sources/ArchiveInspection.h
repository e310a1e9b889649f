#pragma once

// What can be known of a skill archive before it is unpacked, and the refusal of those that must not be.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundations/SkillsError.h"
#include "sources/Archive.h"
#include "sources/ZipDirectory.h"

namespace orvanta {

// How much there is, as an archive claims or as it lies on the disk.
struct ArchiveExtent {
  std::uint64_t bytes = 0;
  std::uint64_t entries = 0;

  // Counts one more file or folder.
  void add(std::uint64_t size);

  // What is too much, as the rest of a sentence about the archive; nothing when all is within the limits.
  [[nodiscard]] std::optional<std::string> beyond(const Archive::Limits& limits) const;
};

struct ArchiveContents {
  // How many files and links unpacking must yield at least.
  std::int64_t files = 0;
  // Entries with names beyond ASCII that were packed on a system other than Unix.
  std::vector<ZipEntry> foreignNames;
};

// The error with the archive's name in front of its text.
[[nodiscard]] SkillsError aboutArchive(const std::filesystem::path& archive, const SkillsError& error);

// Throws `notFound` when there is no such file, `io` when it cannot be read, and `invalidInput` for whatever else
// speaks against unpacking it: no ZIP, damaged, encrypted, beyond the limits, or an entry that leads out of the
// archive, would be written through a link, is a device, or has a name that is not UTF-8.
[[nodiscard]] ArchiveContents inspectArchive(const std::filesystem::path& archive, const Archive::Limits& limits);

}  // namespace orvanta
