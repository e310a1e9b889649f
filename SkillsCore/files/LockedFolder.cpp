#include "files/LockedFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

UniqueFd openForLock(const fs::path& folder) {
  return UniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

UniqueFd makeLockedFolder(const fs::path& folder) {
  // Where the file system has no locks, nobody ever comes by one either, and nothing is cleared up.
  // Another process that clears up may take the folder for a leftover until it is locked; it is then made anew.
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (::mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      throw SkillsError::system("Cannot create " + folder.string(), errno);
    }
    UniqueFd lock = openForLock(folder);
    const bool isLocked = lock && (::flock(lock.get(), LOCK_EX) == 0 || errno != EINTR);
    if (isLocked && FS::isDirectory(folder)) return lock;
  }
  throw SkillsError::io("Cannot keep the folder " + folder.string() + "; another process removes it");
}

std::optional<UniqueFd> lockOfAbandoned(const fs::path& folder) {
  UniqueFd fd = openForLock(folder);
  if (!fd || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return std::nullopt;
  return fd;
}

bool isFolderLocked(const fs::path& folder) {
  const UniqueFd fd = openForLock(folder);
  if (!fd) return errno != ENOENT && errno != ENOTDIR && errno != ELOOP;
  return ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace orvanta
