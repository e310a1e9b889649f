#include "files/TemporaryFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::string_view, 8> kPrefixes{"orvanta-clone-",    "orvanta-archive-", "orvanta-wellknown-",
                                                    "orvanta-reimport-", "orvanta-update-",  "orvanta-diff-",
                                                    "orvanta-project-",  "orvanta-backup-"};
constexpr std::int64_t kDayMillis = 24LL * 60 * 60 * 1000;

bool isOurs(const std::string& name) {
  constexpr std::size_t kSuffix = 8;
  return std::any_of(kPrefixes.begin(), kPrefixes.end(), [&](std::string_view prefix) {
    return name.size() == prefix.size() + kSuffix && name.compare(0, prefix.size(), prefix) == 0;
  });
}

bool isStale(const fs::path& folder, std::int64_t now) {
  struct stat status {};
  if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()) return false;
  return now - static_cast<std::int64_t>(status.st_mtime) * 1000 > kDayMillis;
}

}  // namespace

fs::path FS::makeTempDir(const fs::path& root, std::string_view prefix) {
  fs::path folder = root / (std::string(prefix) + newUuid().substr(0, 8));
  createDirectories(root);
  if (::mkdir(folder.c_str(), S_IRWXU) != 0) {
    throw SkillsError::system("Cannot create the temporary folder " + folder.string(), errno);
  }
  return folder;
}

// What cannot be removed now is removed as stale by a later start.
TemporaryFolder::~TemporaryFolder() {
  if (!path_.empty()) FS::removeQuietly(path_);
}

void removeStaleTempDirs(const fs::path& root, std::int64_t now) {
  for (const auto& name : FS::childNames(root)) {
    if (isOurs(name) && isStale(root / name, now)) FS::removeQuietly(root / name);
  }
}

}  // namespace orvanta
