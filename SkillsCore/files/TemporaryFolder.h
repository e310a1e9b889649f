#pragma once

// Folders for work in progress that are removed when the work ends, however it ends.

#include <filesystem>
#include <string_view>
#include <utility>

#include "platform/UniqueFd.h"

namespace orvanta {

class TemporaryFolder {
 public:
  // A new folder in `root` named `prefix` and the first eight characters of a fresh UUID; its parents are made. Throws
  // `io`.
  TemporaryFolder(const std::filesystem::path& root, std::string_view prefix);
  TemporaryFolder(TemporaryFolder&& other) noexcept
      : path_(std::exchange(other.path_, {})), lock_(std::move(other.lock_)) {}
  TemporaryFolder& operator=(TemporaryFolder&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(lock_, other.lock_);
    return *this;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  UniqueFd lock_;
};

// Removes what killed processes left behind: temporary folders of ours in `root` that belong to this user and in which
// nobody works. Never throws.
void removeAbandonedTempDirs(const std::filesystem::path& root);

}  // namespace orvanta
