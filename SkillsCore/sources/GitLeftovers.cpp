#include "sources/GitLeftovers.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "platform/FolderUsers.h"

namespace orvanta {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

namespace {

// No git that works for itself keeps a lock longer, where the system does not tell who is at work.
constexpr auto longestUse = 10min;
constexpr auto patience = 3s;

void addLocks(const fs::path& folder, std::vector<fs::path>& locks) {
  for (const auto& name : FS::childNames(folder)) {
    // Tidying up in the background locks its log, which hinders nobody.
    if (name.ends_with(".lock") && !name.starts_with("gc.")) locks.push_back(folder / name);
  }
}

void addLocksBelow(const fs::path& folder, std::vector<fs::path>& locks) {
  addLocks(folder, locks);
  for (const auto& child : FS::children(folder)) {
    if (FS::isDirectory(child)) addLocksBelow(child, locks);
  }
}

// Those that a git needs for its work.
std::vector<fs::path> locksIn(const fs::path& gitFolder) {
  std::vector<fs::path> locks;
  addLocks(gitFolder, locks);
  addLocksBelow(gitFolder / "refs", locks);
  addLocksBelow(gitFolder / "logs", locks);
  return locks;
}

// What hinders nobody: locks of what git does in the background now and then, and objects, which are written under
// such names, each beside its place or all in one folder.
std::vector<fs::path> idleLeftovers(const fs::path& gitFolder) {
  std::vector<fs::path> found;
  const fs::path objects = gitFolder / "objects";
  addLocks(objects, found);
  addLocks(objects / "info", found);
  for (const auto& name : FS::childNames(objects)) {
    if (name.starts_with("tmp_")) {
      found.push_back(objects / name);
      continue;
    }
    for (const auto& inner : FS::childNames(objects / name)) {
      if (inner.starts_with("tmp_")) found.push_back(objects / name / inner);
    }
  }
  return found;
}

bool isYoung(const fs::path& file) {
  std::error_code error;
  const auto written = fs::last_write_time(file, error);
  return !error && fs::file_time_type::clock::now() - written < longestUse;
}

bool isGitAtWork(const fs::path& gitFolder, const std::vector<fs::path>& locks) {
  // The working folder of a git is the tree beside its own folder.
  if (const auto inUse = isFolderInUse(gitFolder.parent_path(), gitFolder, "git")) return *inUse;
  return std::any_of(locks.begin(), locks.end(), isYoung);
}

}  // namespace

void clearGitLeftovers(const fs::path& gitFolder) {
  auto locks = locksIn(gitFolder);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!locks.empty() && isGitAtWork(gitFolder, locks)) {
    if (std::chrono::steady_clock::now() >= deadline) {
      throw SkillsError::conflict("Another git is at work in " + gitFolder.parent_path().string() +
                                  "; wait until it has finished and try again");
    }
    std::this_thread::sleep_for(50ms);
    locks = locksIn(gitFolder);
  }
  for (const auto& lock : locks) FS::removeAny(lock);
  const auto others = idleLeftovers(gitFolder);
  if (others.empty() || isGitAtWork(gitFolder, others)) return;
  for (const auto& other : others) FS::removeAny(other);
}

}  // namespace orvanta
