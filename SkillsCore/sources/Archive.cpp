#include "sources/Archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "files/FS.h"
#include "files/TreeWalk.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/ProcessRunner.h"
#include "platform/UniqueFd.h"
#include "sources/ArchiveInspection.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr auto unzipTimeout = std::chrono::seconds(120);
constexpr auto watchInterval = std::chrono::milliseconds(100);

// unzip takes the names of entries packed on other systems for an old code page, even where the archive says that they
// are UTF-8. Marked as packed on Unix, they are taken as they are; they then need permissions, too.
void markAsUnix(int fd, const ZipEntry& entry) {
  constexpr std::uint64_t systemField = 5;
  constexpr std::uint64_t modeField = 40;
  constexpr std::uint64_t nameField = 46;
  const auto put = [&](std::uint64_t field, std::string_view bytes) {
    const auto written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(entry.position + field));
    if (written != static_cast<ssize_t>(bytes.size())) {
      throw SkillsError::system("Failed to prepare the archive", errno);
    }
  };
  const bool folder = entry.kind == ZipEntry::Kind::folder;
  put(systemField, "\3");
  put(modeField, folder ? "\xED\x41" : "\xA4\x81");  // 040755 and 0100644
  if (entry.name.find('/') != std::string::npos) return;
  auto name = entry.name;
  std::replace(name.begin(), name.end(), '\\', '/');
  put(nameField, name);
}

// The archive as unzip gets to see it, in the folder where it runs: under a plain name, because unzip takes a leading
// "-" for an option and brackets for a pattern. A link where that will do, else a changed copy.
class WorkingArchive {
 public:
  WorkingArchive(const fs::path& archive, const ArchiveContents& contents, const fs::path& folder)
      : path_(folder / "archive.zip") {
    if (contents.foreignNames.empty()) {
      FS::createSymlink(archive, path_);
      return;
    }
    try {
      copy(archive);
      const auto fd = openCopy();
      for (const auto& entry : contents.foreignNames) markAsUnix(fd.get(), entry);
    } catch (const SkillsError&) {
      remove();
      throw;
    }
  }
  ~WorkingArchive() { remove(); }
  WorkingArchive(const WorkingArchive&) = delete;
  WorkingArchive& operator=(const WorkingArchive&) = delete;

  [[nodiscard]] std::string name() const { return path_.filename().string(); }

 private:
  void copy(const fs::path& archive) const {
    std::error_code error;
    fs::copy_file(archive, path_, error);
    if (!error) fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_write, error);
    if (error) throw SkillsError::system("Failed to copy " + archive.string(), error.value());
  }

  [[nodiscard]] UniqueFd openCopy() const {
    UniqueFd fd(::open(path_.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) throw SkillsError::system("Failed to open " + path_.string(), errno);
    return fd;
  }

  void remove() const { ::unlink(path_.c_str()); }

  const fs::path path_;
};

// Calls `visit` for everything below the folder that can be reached, following no link. Folders are visited before
// what they hold. The result says what kept it from seeing more.
template <typename Visit>
std::error_code forEachBelow(const fs::path& folder, const Visit& visit) {
  std::error_code error;
  fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    struct stat info {};
    if (::lstat(entry->path().c_str(), &info) == 0) visit(entry->path(), info);
  }
  return error;
}

ArchiveExtent extentOnDisk(const fs::path& folder) {
  ArchiveExtent extent;
  forEachBelow(folder, [&](const fs::path&, const struct stat& info) {
    extent.add(S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0);
  });
  return extent;
}

std::int64_t filesOnDisk(const fs::path& folder) {
  std::int64_t count = 0;
  forEachBelow(folder, [&](const fs::path&, const struct stat& info) { count += S_ISDIR(info.st_mode) ? 0 : 1; });
  return count;
}

// The archive chooses permissions; the owner must be able to work with the result, and nobody else to change it.
void settlePermissions(const fs::path& folder) {
  const auto settle = [](const fs::path& path, mode_t mode, mode_t needed) {
    const auto settled = (mode & 0755U) | needed;
    if (settled != (mode & 07777U) && ::chmod(path.c_str(), settled) != 0) {
      throw SkillsError::system("Failed to set the permissions of " + path.string(), errno);
    }
  };
  settle(folder, 0, S_IRWXU);
  const auto error = forEachBelow(folder, [&](const fs::path& path, const struct stat& info) {
    if (S_ISDIR(info.st_mode)) return settle(path, info.st_mode, S_IRWXU);
    if (S_ISREG(info.st_mode)) return settle(path, info.st_mode, S_IRUSR | S_IWUSR);
    if (!S_ISLNK(info.st_mode)) FS::removeAny(path);
  });
  if (error) throw SkillsError::system("Failed to read " + folder.string(), error.value());
}

// What became of one run of unzip.
struct Unpacking {
  ProcessResult result;
  std::optional<std::string> overLimit;
};

Unpacking runUnzip(const WorkingArchive& archive, const fs::path& into, const Archive::Limits& limits,
                   const std::stop_token& stop) {
  const auto unzip = ProcessRunner::which("unzip");
  if (!unzip) throw SkillsError::io("Failed to extract archive: the program unzip is missing; install it first");

  std::stop_source ending;
  const std::stop_callback passOn(stop, [&ending] { ending.request_stop(); });
  RunOptions options;
  options.cwd = into.parent_path();
  options.timeout = unzipTimeout;
  options.stop = ending.get_token();
  // The user's default options for unzip might undo its safety.
  options.environment = {{"UNZIP", ""}, {"UNZIPOPT", ""}};
#ifndef __APPLE__
  // The one UTF-8 locale that is always there; without one, unzip may spell out what is not ASCII in names.
  options.environment["LC_ALL"] = "C.UTF-8";
#endif

  Unpacking unpacking;
  std::jthread watcher([&](const std::stop_token& done) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any never;
    while (!unpacking.overLimit) {
      never.wait_for(lock, done, watchInterval, [] { return false; });
      if (done.stop_requested()) return;
      unpacking.overLimit = extentOnDisk(into).beyond(limits);
    }
    ending.request_stop();
  });
  // -V: names that end in a version ("a.txt;1") stay as they are.
  unpacking.result = ProcessRunner::run(*unzip, {"-o", "-q", "-V", archive.name(), "-d", into.string()}, options);
  watcher.request_stop();
  watcher.join();  // before what it wrote is read
  return unpacking;
}

// unzip's own exit statuses: 2, 3 and 51 stand for a damaged archive, 81 and 82 for one that it cannot read.
bool blamesArchive(const ProcessResult& result) {
  constexpr std::array statuses = {1, 2, 3, 51, 81, 82};
  return !result.timedOut && std::find(statuses.begin(), statuses.end(), result.exitCode) != statuses.end();
}

// Status 1 stands for warnings, which are harmless unless unzip skipped something.
bool isComplete(const ProcessResult& result, const fs::path& into, std::int64_t files) {
  if (result.exitCode == 1 && !result.timedOut) return filesOnDisk(into) >= files;
  return result.succeeded();
}

void unpack(const fs::path& archive, const ArchiveContents& contents, const fs::path& into,
            const Archive::Limits& limits, const std::stop_token& stop) {
  auto [result, overLimit] = runUnzip(WorkingArchive(archive, contents, into.parent_path()), into, limits, stop);
  settlePermissions(into);
  if (!overLimit) overLimit = extentOnDisk(into).beyond(limits);
  if (overLimit) throw aboutArchive(archive, SkillsError::invalidInput(*overLimit));
  if (stop.stop_requested()) throw SkillsError::io("Unpacking " + archive.string() + " was stopped");
  if (isComplete(result, into, contents.files)) return;
  const auto text = "Failed to extract archive: " + Text::singleLine(Text::prefixBytes(result.failureText(), 1000));
  throw blamesArchive(result) ? SkillsError::invalidInput(text) : SkillsError::io(text);
}

}  // namespace

void Archive::extract(const fs::path& archive, const fs::path& into, const Limits& limits,
                      const std::stop_token& stop) {
  const auto contents = inspectArchive(archive, limits);
  const auto destination = fs::absolute(into);
  if (::mkdir(destination.c_str(), S_IRWXU) != 0) {
    throw SkillsError::system("Failed to create the folder " + destination.string(), errno);
  }
  try {
    unpack(fs::absolute(archive), contents, destination, limits, stop);
  } catch (...) {
    FS::removeQuietly(destination);
    throw;
  }
}

void Archive::stripSymlinks(const fs::path& folder) {
  const UniqueFd root(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root) throw SkillsError::system("Failed to open the folder " + folder.string(), errno);
  for (const auto& entry : listTree(root.get(), folder, [](std::string_view) { return false; })) {
    if (entry.kind == TreeEntry::Kind::symlink) FS::removeSymlink(folder / entry.relativePath);
  }
}

}  // namespace orvanta
