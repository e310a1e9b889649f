#include "files/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include "foundations/SkillsError.h"
#include "platform/UniqueFd.h"

namespace orvanta {

namespace {

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, CloseDir>;

Dir openFolder(int rootFd, const std::string& relative, const std::filesystem::path& shown) {
  UniqueFd fd(::openat(rootFd, relative.empty() ? "." : relative.c_str(),
                       O_RDONLY | O_DIRECTORY | O_CLOEXEC | (relative.empty() ? 0 : O_NOFOLLOW)));
  if (!fd) throw SkillsError::system("Cannot read the folder " + (shown / relative).string(), errno);
  Dir dir(::fdopendir(fd.get()));
  if (!dir) throw SkillsError::system("Cannot read the folder " + (shown / relative).string(), errno);
  fd.release();
  return dir;
}

std::optional<TreeEntry::Kind> kindFromMode(mode_t mode) {
  if (S_ISDIR(mode)) return TreeEntry::Kind::directory;
  if (S_ISREG(mode)) return TreeEntry::Kind::file;
  if (S_ISLNK(mode)) return TreeEntry::Kind::symlink;
  return std::nullopt;
}

// The listing itself mostly tells the kind; where the file system leaves it open, the entry is asked.
std::optional<TreeEntry::Kind> kindOf(DIR* dir, const dirent& entry) {
  switch (entry.d_type) {
    case DT_DIR: return TreeEntry::Kind::directory;
    case DT_REG: return TreeEntry::Kind::file;
    case DT_LNK: return TreeEntry::Kind::symlink;
    case DT_UNKNOWN: break;
    default: return std::nullopt;
  }
  struct stat status {};
  if (::fstatat(::dirfd(dir), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return kindFromMode(status.st_mode);
}

}  // namespace

std::vector<TreeEntry> listTree(int rootFd, const std::filesystem::path& shown, NameFilter leavesOut) {
  std::vector<TreeEntry> entries;
  // One folder is open at a time, whatever the depth: a hostile tree cannot use up the descriptors.
  std::vector<std::string> pending{""};
  while (!pending.empty()) {
    const std::string folder = std::move(pending.back());
    pending.pop_back();
    const Dir dir = openFolder(rootFd, folder, shown);
    const std::string prefix = folder.empty() ? "" : folder + "/";
    while (const dirent* entry = ::readdir(dir.get())) {
      const std::string_view name(entry->d_name);
      if (name == "." || name == ".." || leavesOut(name)) continue;
      const auto kind = kindOf(dir.get(), *entry);
      if (!kind) continue;
      std::string relative = prefix;
      relative += name;
      if (*kind == TreeEntry::Kind::directory) pending.push_back(relative);
      entries.push_back({std::move(relative), *kind});
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](const TreeEntry& a, const TreeEntry& b) { return a.relativePath < b.relativePath; });
  return entries;
}

}  // namespace orvanta
