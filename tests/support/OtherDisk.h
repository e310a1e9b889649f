#pragma once

// A folder on another file system, for what works differently there.

#include <unistd.h>

#include <filesystem>
#include <optional>

#include "files/FS.h"
#include "files/TemporaryFolder.h"

namespace orvanta {

// None where there is no second file system that can be written to.
inline std::optional<TemporaryFolder> folderOnAnotherDiskThan(const std::filesystem::path& here) {
  const std::filesystem::path disk = "/dev/shm";
  const bool isUsable = FS::identity(disk).device != FS::identity(here).device && ::access(disk.c_str(), W_OK) == 0;
  return isUsable ? std::optional<TemporaryFolder>(std::in_place, disk, "orvanta-test-") : std::nullopt;
}

}  // namespace orvanta
