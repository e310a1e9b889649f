#pragma once

// Reads regular files below an open folder, block by block, as fast as the system gives them.

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/UniqueFd.h"

namespace orvanta {

// The folder opened for reading; a link to a folder is followed. Throws `io`.
UniqueFd openFolder(const std::filesystem::path& folder);

// One open regular file with what the system says of it. Never follows a link and never waits on a fifo.
class FileReader {
 public:
  // Throws `io` when the file cannot be opened or is not a regular file.
  FileReader(int rootFd, const std::string& relative, const std::filesystem::path& shown);

  [[nodiscard]] int fd() const { return fd_.get(); }
  [[nodiscard]] const struct stat& status() const { return status_; }
  [[nodiscard]] std::int64_t size() const { return status_.st_size; }

  // The next block, empty after `size()` bytes; it stays valid until the next call on this thread. A file that turns
  // out shorter than it said throws `io`: whoever reads it would take half a file for the whole.
  std::string_view next();

 private:
  [[nodiscard]] std::string name() const { return (shown_ / relative_).string(); }

  const std::string& relative_;
  const std::filesystem::path& shown_;
  UniqueFd fd_;
  struct stat status_ {};
  std::int64_t remaining_ = 0;
};

// The text of a link below an open folder. Throws `io`.
std::string readLinkText(int rootFd, const std::string& relative, const std::filesystem::path& shown);

}  // namespace orvanta
