#include "files/FS.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <system_error>

#include "files/Paths.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"
#include "platform/AtomicRename.h"
#include "platform/FileTimes.h"
#include "platform/Flush.h"
#include "platform/UniqueFd.h"
#include "platform/WriteAll.h"

namespace orvanta::FS {

namespace fs = std::filesystem;

namespace {

Kind kindOf(mode_t mode) {
  if (S_ISLNK(mode)) return Kind::symlink;
  return S_ISDIR(mode) ? Kind::directory : Kind::file;
}

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

// Opens a folder that is to be emptied; one whose permissions forbid that to its owner is opened up first.
UniqueFd openToEmpty(int parent, const char* name, const fs::path& shown) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd folder(::openat(parent, name, kFlags));
  if (!folder && errno == EACCES && ::fchmodat(parent, name, S_IRWXU, 0) == 0) {
    folder.reset(::openat(parent, name, kFlags));
  }
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0) throw SkillsError::system("Cannot open " + shown.string(), errno);
  if ((status.st_mode & S_IRWXU) != S_IRWXU) ::fchmod(folder.get(), S_IRWXU);
  return folder;
}

std::vector<std::string> namesIn(int folder, const fs::path& shown) {
  UniqueFd own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, CloseDir> dir(own ? ::fdopendir(own.get()) : nullptr);
  if (!dir) throw SkillsError::system("Cannot list " + shown.string(), errno);
  own.release();
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return names;
}

// Goes back from an emptied folder to the one above, which must still be the one it was.
UniqueFd openAbove(int folder, const struct stat& expected, const fs::path& shown) {
  UniqueFd above(::openat(folder, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat status {};
  if (!above || ::fstat(above.get(), &status) != 0) throw SkillsError::system("Cannot open " + shown.string(), errno);
  if (status.st_dev != expected.st_dev || status.st_ino != expected.st_ino) {
    throw SkillsError::io("Cannot remove " + shown.string() + ": it was moved meanwhile; try again");
  }
  return above;
}

// Works by descriptors, so that a folder swapped for a link meanwhile is never followed, and holds one folder open at a
// time, so that no depth exhausts them.
void empty(UniqueFd& folder, const fs::path& shown) {
  struct stat self {};
  if (::fstat(folder.get(), &self) != 0) throw SkillsError::system("Cannot open " + shown.string(), errno);
  for (const auto& name : namesIn(folder.get(), shown)) {
    if (::unlinkat(folder.get(), name.c_str(), 0) == 0 || errno == ENOENT) continue;
    if (errno != EISDIR && errno != EPERM) throw SkillsError::system("Cannot remove " + (shown / name).string(), errno);
    UniqueFd child = openToEmpty(folder.get(), name.c_str(), shown / name);
    folder.reset();
    empty(child, shown / name);
    folder = openAbove(child.get(), self, shown);
    if (::unlinkat(folder.get(), name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
      throw SkillsError::system("Cannot remove " + (shown / name).string(), errno);
    }
  }
}

// The backup of the library leaves such names out.
fs::path unfinishedName(const fs::path& file, const std::string& distinction = "") {
  return file.parent_path() / ("." + file.filename().string() + distinction + ".orvanta.tmp");
}

// The file, made where it is missing, while no other process writes it: one that has finished gives it another name.
// Nothing where it cannot be made, or is no file that can be written over: a folder, a link, a fifo, a file that has a
// second name.
UniqueFd openAlone(const fs::path& file, unsigned permissions) {
  for (;;) {
    UniqueFd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, permissions));
    struct stat opened {};
    if (!fd || ::fstat(fd.get(), &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_nlink > 1) return {};
    if (::flock(fd.get(), LOCK_EX) != 0) return {};
    struct stat named {};
    const bool isNamed = ::lstat(file.c_str(), &named) == 0;
    if (isNamed && opened.st_ino == named.st_ino && opened.st_dev == named.st_dev) return fd;
  }
}

}  // namespace

Kind kind(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? kindOf(status.st_mode) : Kind::absent;
}

Identity identity(const fs::path& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  const timespec& modified = modificationTime(status);
  return {.device = static_cast<std::uint64_t>(status.st_dev),
          .inode = static_cast<std::uint64_t>(status.st_ino),
          .type = static_cast<std::uint32_t>(status.st_mode & S_IFMT),
          .modifiedNs = static_cast<std::int64_t>(modified.tv_sec) * 1'000'000'000 + modified.tv_nsec};
}

bool isKnownAs(const fs::path& path, Identity noted) {
  const Identity found = identity(path);
  noted.device = found.device;
  return found == noted;
}

bool exists(const fs::path& path) { return kind(path) != Kind::absent; }

bool isCertainlyAbsent(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

bool isDirectory(const fs::path& path) { return kind(path) == Kind::directory; }

bool resolvesToDirectory(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool resolvesToFile(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<fs::path> linkDestination(const fs::path& path) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = ::readlink(path.c_str(), buffer.data(), buffer.size());
  if (length < 0) return std::nullopt;
  const fs::path destination(std::string(buffer.data(), static_cast<std::size_t>(length)));
  return standardized(destination.is_absolute() ? destination : path.parent_path() / destination);
}

fs::path resolved(const fs::path& path) {
  std::error_code error;
  const fs::path result = fs::weakly_canonical(standardized(path), error);
  return error ? standardized(path) : standardized(result);
}

std::vector<std::string> childNames(const fs::path& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseDir> dir(::opendir(folder.c_str()));
  if (!dir) return names;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return names;
}

std::vector<fs::path> children(const fs::path& folder) {
  std::vector<fs::path> paths;
  for (const auto& name : childNames(folder)) paths.push_back(folder / name);
  return paths;
}

std::optional<std::string> readText(const fs::path& file, std::size_t largest) {
  const UniqueFd fd(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (status.st_size < 0 || static_cast<std::size_t>(status.st_size) > largest) return std::nullopt;
  std::string text;
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t got = ::read(fd.get(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(got));
    if (text.size() > largest) return std::nullopt;
  }
}

void createDirectories(const fs::path& folder) {
  if (resolvesToDirectory(folder)) return;
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw SkillsError::system("Cannot create the folder " + folder.string(), error.value());
  if (!resolvesToDirectory(folder)) {
    throw SkillsError::system("Cannot create the folder " + folder.string(), ENOTDIR);
  }
}

void flushFolder(const fs::path& folder) {
  if (const int error = orvanta::flushFolder(folder.c_str())) {
    throw SkillsError::system("Cannot write the folder " + folder.string() + " to the disk", error);
  }
}

void flushFile(const fs::path& file) {
  const UniqueFd fd(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd || ::fsync(fd.get()) != 0) throw SkillsError::system("Cannot write " + file.string() + " to the disk", errno);
}

void flushTree(const fs::path& folder) {
  if (const int error = orvanta::flushTree(folder.c_str())) {
    throw SkillsError::system("Cannot write " + folder.string() + " to the disk", error);
  }
}

fs::path freeStampedFile(const fs::path& folder, std::string_view prefix, std::string_view suffix) {
  std::string stamp = iso8601(nowMillis());
  std::replace(stamp.begin(), stamp.end(), ':', '-');
  const std::string name = std::string(prefix) + stamp;
  fs::path file = folder / (name + std::string(suffix));
  for (int number = 2; FS::exists(file); ++number) {
    file = folder / (name + "-" + std::to_string(number) + std::string(suffix));
  }
  return file;
}

void writeAtomically(const fs::path& file, std::string_view content, unsigned permissions) {
  fs::path temporary = unfinishedName(file);
  UniqueFd fd = openAlone(temporary, permissions);
  if (!fd) {  // what somebody put there stays
    temporary = unfinishedName(file, "-" + newUuid().substr(0, 8));
    fd = openAlone(temporary, permissions);
  }
  if (!fd) throw SkillsError::system("Cannot write " + file.string(), errno);
  try {
    if (::ftruncate(fd.get(), 0) != 0 || !writeAll(fd.get(), content) || ::fsync(fd.get()) != 0 ||
        ::rename(temporary.c_str(), file.c_str()) != 0) {
      throw SkillsError::system("Cannot write " + file.string(), errno);
    }
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
  flushFolder(file.parent_path());
}

void writeOver(const fs::path& file, std::string_view content) {
  const UniqueFd fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666));
  if (!fd || !writeAll(fd.get(), content)) throw SkillsError::system("Cannot write " + file.string(), errno);
}

void append(const fs::path& file, std::string_view content, unsigned permissions) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const UniqueFd fd(::open(file.c_str(), kFlags, permissions));
  if (!fd || !writeAll(fd.get(), content)) throw SkillsError::system("Cannot write " + file.string(), errno);
}

void copyPermissions(const fs::path& from, const fs::path& to) {
  struct stat status {};
  if (::stat(from.c_str(), &status) != 0) throw SkillsError::system("Cannot read " + from.string(), errno);
  if (::chmod(to.c_str(), status.st_mode & 07777U) != 0) {
    throw SkillsError::system("Cannot set the permissions of " + to.string(), errno);
  }
}

void removeAny(const fs::path& path) {
  if (::unlink(path.c_str()) == 0 || errno == ENOENT) return;
  if (errno != EISDIR && errno != EPERM) throw SkillsError::system("Cannot remove " + path.string(), errno);
  if (kind(path) != Kind::directory) throw SkillsError::system("Cannot remove " + path.string(), EPERM);
  UniqueFd folder = openToEmpty(AT_FDCWD, path.c_str(), path);
  empty(folder, path);
  folder.reset();
  if (::rmdir(path.c_str()) != 0 && errno != ENOENT) throw SkillsError::system("Cannot remove " + path.string(), errno);
}

void removeQuietly(const fs::path& path) noexcept {
  try {
    removeAny(path);
  } catch (const std::exception&) {
    return;
  }
}

bool removeIfEmpty(const fs::path& folder) noexcept { return ::rmdir(folder.c_str()) == 0 || errno == ENOENT; }

void removeSymlink(const fs::path& path) {
  if (kind(path) != Kind::symlink) {
    throw SkillsError::refused("Refusing to remove " + path.string() + ": not a symbolic link");
  }
  if (::unlink(path.c_str()) != 0) throw SkillsError::system("Failed to remove link " + path.string(), errno);
}

void createSymlink(const fs::path& destination, const fs::path& link) {
  if (::symlink(standardized(destination).c_str(), link.c_str()) != 0) {
    throw SkillsError::system("Cannot create the link " + link.string(), errno);
  }
}

void renameExclusive(const fs::path& from, const fs::path& to) {
  const int error = renameNoReplace(from.c_str(), to.c_str());
  if (error == EEXIST || error == ENOTEMPTY) {
    throw SkillsError::conflict("Something already stands at " + to.string() + "; nothing was replaced");
  }
  if (error != 0) throw SkillsError::system("Cannot move " + from.string() + " to " + to.string(), error);
}

void replaceEmptyFolder(const fs::path& from, const fs::path& to) {
  if (::rename(from.c_str(), to.c_str()) == 0) return;
  if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR) {
    throw SkillsError::conflict("Something already stands in " + to.string() + "; nothing was replaced");
  }
  throw SkillsError::system("Cannot move " + from.string() + " to " + to.string(), errno);
}

void settleExchange(const fs::path& a, const fs::path& b) {
  const fs::path between = a.string() + kExchangeSuffix;  // what stood at b
  if (FS::exists(between)) renameExclusive(between, FS::exists(a) ? b : a);
}

void exchange(const fs::path& a, const fs::path& b) {
  const int error = exchangePaths(a.c_str(), b.c_str());
  if (error != 0) throw SkillsError::system("Cannot exchange " + a.string() + " and " + b.string(), error);
}

}  // namespace orvanta::FS
