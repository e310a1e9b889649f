#pragma once

// Folders for work in progress that are removed when the work ends, however it ends.

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <utility>

namespace orvanta {

namespace FS {

// A new folder in `root` named `prefix` and the first eight characters of a fresh UUID; its parents are made.
// Throws `io`.
std::filesystem::path makeTempDir(const std::filesystem::path& root, std::string_view prefix);

}  // namespace FS

class TemporaryFolder {
 public:
  TemporaryFolder(const std::filesystem::path& root, std::string_view prefix) : path_(FS::makeTempDir(root, prefix)) {}
  TemporaryFolder(TemporaryFolder&& other) noexcept : path_(std::exchange(other.path_, {})) {}
  TemporaryFolder& operator=(TemporaryFolder&& other) noexcept {
    std::swap(path_, other.path_);
    return *this;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Removes what a killed process left behind: temporary folders of ours in `root` that belong to this user and were last
// changed more than a day before `now`. Never throws.
void removeStaleTempDirs(const std::filesystem::path& root, std::int64_t now);

}  // namespace orvanta
