#include "files/FileReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

constexpr std::size_t kBlock = std::size_t{256} << 10;

char* blockOfThisThread() {
  thread_local const std::unique_ptr<char[]> block = std::make_unique_for_overwrite<char[]>(kBlock);
  return block.get();
}

}  // namespace

UniqueFd openFolder(const std::filesystem::path& folder) {
  UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw SkillsError::system("Cannot read the folder " + folder.string(), errno);
  return fd;
}

FileReader::FileReader(int rootFd, const std::string& relative, const std::filesystem::path& shown)
    : relative_(relative),
      shown_(shown),
      fd_(::openat(rootFd, relative.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
  if (!fd_ || ::fstat(fd_.get(), &status_) != 0) throw SkillsError::system("Cannot read " + name(), errno);
  if (!S_ISREG(status_.st_mode)) throw SkillsError::io("Cannot read " + name() + ": it is no longer a plain file");
  remaining_ = status_.st_size;
}

std::string_view FileReader::next() {
  if (remaining_ == 0) return {};
  const std::size_t wanted = std::min(kBlock, static_cast<std::size_t>(remaining_));
  ssize_t got = 0;
  do {
    got = ::read(fd_.get(), blockOfThisThread(), wanted);
  } while (got < 0 && errno == EINTR);
  if (got < 0) throw SkillsError::system("Cannot read " + name(), errno);
  if (got == 0) throw SkillsError::io("Cannot read " + name() + ": it changed meanwhile; try again");
  remaining_ -= got;
  return {blockOfThisThread(), static_cast<std::size_t>(got)};
}

std::string readLinkText(int rootFd, const std::string& relative, const std::filesystem::path& shown) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(rootFd, relative.c_str(), text.data(), text.size());
  if (length < 0) throw SkillsError::system("Cannot read the link " + (shown / relative).string(), errno);
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace orvanta
