#include "files/TreeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "files/FS.h"
#include "files/FileReader.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "platform/CloneFile.h"
#include "platform/FileTimes.h"
#include "platform/UniqueFd.h"
#include "platform/WriteAll.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr mode_t kAllPermissions = kPermissions | S_ISUID | S_ISGID | S_ISVTX;

struct CopyRules {
  NameFilter leavesOut;
  mode_t rootPermissions = 0;  // granted on the root besides those of the source
  mode_t permissions = kPermissions;
  bool keepsLinkTimes = false;
};

void setTimes(int fd, const struct stat& status, const std::string& name) {
  const timespec times[2] = {accessTime(status), modificationTime(status)};
  if (::futimens(fd, times) != 0) throw SkillsError::system("Cannot set the times of " + name, errno);
}

void setPermissions(int fd, mode_t mode, const std::string& name) {
  if (::fchmod(fd, mode) != 0) throw SkillsError::system("Cannot set the permissions of " + name, errno);
}

// One copy from one open tree into another.
class TreeCopier {
 public:
  TreeCopier(const fs::path& from, const fs::path& to, const CopyRules& rules, CopyObserver* observer)
      : from_(from), to_(to), rules_(rules), source_(openFolder(from)), observer_(observer) {}

  void run() {
    const auto entries = listTree(source_.get(), from_, rules_.leavesOut);
    FS::createDirectories(to_.parent_path());
    if (::mkdir(to_.c_str(), S_IRWXU) != 0) throw SkillsError::system("Cannot create " + to_.string(), errno);
    destination_ = openFolder(to_);
    for (const auto& entry : entries) copy(entry);
    // A folder's time and permissions are set after everything in it is there, the deepest first.
    std::for_each(entries.rbegin(), entries.rend(), [this](const TreeEntry& entry) {
      if (entry.kind == TreeEntry::Kind::directory) finishFolder(entry.relativePath, 0);
    });
    finishFolder(".", rules_.rootPermissions);
  }

 private:
  void copy(const TreeEntry& entry) {
    switch (entry.kind) {
      case TreeEntry::Kind::directory: makeFolder(entry.relativePath); break;
      case TreeEntry::Kind::file: copyFile(entry.relativePath); break;
      case TreeEntry::Kind::symlink: copyLink(entry.relativePath); break;
    }
  }

  void makeFolder(const std::string& relative) {
    if (::mkdirat(destination_.get(), relative.c_str(), S_IRWXU) != 0) {
      throw SkillsError::system("Cannot create " + made(relative), errno);
    }
  }

  void finishFolder(const std::string& relative, mode_t added) {
    struct stat status {};
    if (::fstatat(source_.get(), relative.c_str(), &status, 0) != 0) {
      throw SkillsError::system("Cannot read " + (from_ / relative).string(), errno);
    }
    const UniqueFd folder(::openat(destination_.get(), relative.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) throw SkillsError::system("Cannot open " + made(relative), errno);
    setPermissions(folder.get(), (status.st_mode & rules_.permissions) | added, made(relative));
    setTimes(folder.get(), status, made(relative));
  }

  void copyLink(const std::string& relative) {
    const std::string text = readLinkText(source_.get(), relative, from_);
    if (::symlinkat(text.c_str(), destination_.get(), relative.c_str()) != 0) {
      throw SkillsError::system("Cannot create the link " + made(relative), errno);
    }
    if (rules_.keepsLinkTimes) copyLinkTimes(relative);
    if (observer_ != nullptr) observer_->link(relative, text);
  }

  void copyLinkTimes(const std::string& relative) {
    struct stat status {};
    if (::fstatat(source_.get(), relative.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      throw SkillsError::system("Cannot read " + (from_ / relative).string(), errno);
    }
    const timespec times[2] = {accessTime(status), modificationTime(status)};
    if (::utimensat(destination_.get(), relative.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
      throw SkillsError::system("Cannot set the times of " + made(relative), errno);
    }
  }

  void copyFile(const std::string& relative) {
    FileReader reader(source_.get(), relative, from_);
    const struct stat& status = reader.status();
    const UniqueFd out(
        ::openat(destination_.get(), relative.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!out) throw SkillsError::system("Cannot create " + made(relative), errno);
    const bool executable = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    const bool observed = observer_ != nullptr && observer_->beginFile(relative, reader.size(), executable);
    const bool cloned = clone(reader.fd(), out.get());
    for (std::string_view block; !(cloned && !observed) && !(block = reader.next()).empty();) {
      if (!cloned) write(out.get(), block, relative);
      if (observed) observer_->bytes(block);
    }
    setPermissions(out.get(), status.st_mode & rules_.permissions, made(relative));
    setTimes(out.get(), status, made(relative));
  }

  // Asked once per tree where the answer is no: both ends lie on one file system each.
  bool clone(int from, int to) {
    if (canClone_) canClone_ = cloneFile(from, to);
    return canClone_;
  }

  void write(int fd, std::string_view block, const std::string& relative) const {
    if (!writeAll(fd, block)) throw SkillsError::system("Cannot write " + made(relative), errno);
  }

  [[nodiscard]] std::string made(const std::string& relative) const { return (to_ / relative).string(); }

  const fs::path& from_;
  const fs::path& to_;
  const CopyRules rules_;
  const UniqueFd source_;
  UniqueFd destination_;
  CopyObserver* const observer_;
  bool canClone_ = true;
};

void refuseOverlap(const fs::path& from, const fs::path& to) {
  const fs::path source = FS::resolved(from);
  const fs::path destination = FS::resolved(to);
  if (isInside(destination, source) || isInside(source, destination)) {
    throw SkillsError::invalidInput("Source and destination overlap");
  }
}

}  // namespace

void FS::copyTree(const fs::path& from, const fs::path& to) {
  refuseOverlap(from, to);
  TreeCopier(from, to, {.leavesOut = [](std::string_view name) { return name == ".git"; }}, nullptr).run();
}

void FS::copySkillTree(const fs::path& from, const fs::path& to, CopyObserver* observer) {
  refuseOverlap(from, to);
  const auto leavesOut = [](std::string_view name) { return name == ".git" || name == ".DS_Store"; };
  TreeCopier(from, to, {.leavesOut = leavesOut, .rootPermissions = S_IWUSR}, observer).run();
}

void FS::copyWholeTree(const fs::path& from, const fs::path& to, CopyObserver* observer) {
  refuseOverlap(from, to);
  const auto leavesOut = [](std::string_view) { return false; };
  TreeCopier(from, to, {.leavesOut = leavesOut, .permissions = kAllPermissions, .keepsLinkTimes = true}, observer)
      .run();
}

}  // namespace orvanta
