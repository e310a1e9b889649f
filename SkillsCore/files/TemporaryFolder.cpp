#include "files/TemporaryFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include "files/FS.h"
#include "files/LockedFolder.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 8> kPrefixes{"orvanta-clone-",    "orvanta-archive-", "orvanta-wellknown-",
                                                    "orvanta-reimport-", "orvanta-update-",  "orvanta-diff-",
                                                    "orvanta-project-",  "orvanta-backup-"};

bool isOurs(const std::string& name) {
  constexpr std::size_t kSuffix = 8;
  return std::any_of(kPrefixes.begin(), kPrefixes.end(), [&](std::string_view prefix) {
    return name.size() == prefix.size() + kSuffix && name.compare(0, prefix.size(), prefix) == 0 &&
           name.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
  });
}

bool isThisUsers(const fs::path& folder) {
  struct stat status {};
  return ::lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

fs::path newPath(const fs::path& root, std::string_view prefix) {
  FS::createDirectories(root);
  return root / (std::string(prefix) + newUuid().substr(0, 8));
}

}  // namespace

TemporaryFolder::TemporaryFolder(const fs::path& root, std::string_view prefix)
    : path_(newPath(root, prefix)), lock_(makeLockedFolder(path_)) {}

// What cannot be removed now is removed by a later start.
TemporaryFolder::~TemporaryFolder() {
  if (!path_.empty()) FS::removeQuietly(path_);
}

void removeAbandonedTempDirs(const fs::path& root) {
  for (const auto& name : FS::childNames(root)) {
    if (!isOurs(name) || !isThisUsers(root / name)) continue;
    if (const auto lock = lockOfAbandoned(root / name)) FS::removeQuietly(root / name);
  }
}

}  // namespace orvanta
