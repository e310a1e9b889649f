#include "files/LibraryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>

#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

UniqueFd openLockFile(const fs::path& file) {
  return UniqueFd(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644));
}

bool tryLock(int fd) { return ::flock(fd, LOCK_EX | LOCK_NB) == 0; }

// Whether the locked file is still the one that others would lock: a library that moved away takes its lock along.
bool isStillAt(const fs::path& file, int fd) {
  struct stat locked {};
  struct stat named {};
  return ::fstat(fd, &locked) == 0 && ::lstat(file.c_str(), &named) == 0 && locked.st_dev == named.st_dev &&
         locked.st_ino == named.st_ino;
}

// Only for people: who holds the lock is asked of the file when somebody waits in vain.
void signLockFile(int fd) {
  const std::string holder = "process " + std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, holder.data(), holder.size(), 0) < 0) return;
}

std::string holderOf(const fs::path& file) {
  constexpr std::size_t kLongest = 200;
  const auto text = FS::readText(file, kLongest);
  const std::string holder = text ? Text::singleLine(Text::trim(*text)) : "";
  return holder.empty() ? "another process" : holder;
}

}  // namespace

LibraryLock LibraryLock::acquire(const fs::path& file, std::chrono::milliseconds patience) {
  UniqueFd fd = openLockFile(file);
  if (!fd) throw SkillsError::system("Cannot lock the library: " + file.string(), errno);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  auto pause = std::chrono::milliseconds(1);
  while (!tryLock(fd.get())) {
    if (std::chrono::steady_clock::now() >= deadline) {
      throw SkillsError::conflict("The library is being changed by " + holderOf(file) + " (lock " + file.string() +
                                  "); wait until it has finished and try again");
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
  if (!isStillAt(file, fd.get())) {
    throw SkillsError::conflict("The library was moved or removed meanwhile; run the command again");
  }
  signLockFile(fd.get());
  return LibraryLock(std::move(fd));
}

std::optional<LibraryLock> LibraryLock::tryAcquire(const fs::path& file) {
  UniqueFd fd = openLockFile(file);
  if (!fd || !tryLock(fd.get()) || !isStillAt(file, fd.get())) return std::nullopt;
  signLockFile(fd.get());
  return LibraryLock(std::move(fd));
}

}  // namespace orvanta
