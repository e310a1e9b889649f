#include "sources/StagingFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

UniqueFd openForLock(const fs::path& folder) {
  return UniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

StagingFolder::StagingFolder(const fs::path& skillsFolder) : path_(skillsFolder / (".installing-" + newUuid())) {
  // Another process that heals the library may take the folder for a leftover until it is locked; it is then made anew.
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (::mkdir(path_.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
      throw SkillsError::system("Cannot create " + path_.string(), errno);
    }
    lock_ = openForLock(path_);
    if (lock_ && ::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0 && FS::isDirectory(path_)) return;
  }
  throw SkillsError::io("Cannot keep the folder " + path_.string() + "; another process removes it");
}

StagingFolder::~StagingFolder() {
  try {
    FS::removeAny(path_);
  } catch (const SkillsError&) {
    return;  // removed at the next opening of the library
  }
}

bool StagingFolder::isInUse(const fs::path& folder) {
  const UniqueFd fd = openForLock(folder);
  return fd && ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace orvanta
