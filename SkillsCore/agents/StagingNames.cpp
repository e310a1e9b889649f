#include "agents/StagingNames.h"

#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "content/Scanner.h"
#include "files/FS.h"
#include "files/LockedFolder.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// Behind the prefix that all have: nothing for new content, these for what it replaces and for the lock.
constexpr std::string_view kAside = "old-";
constexpr std::string_view kLock = "lock-";
constexpr std::size_t kTokenLength = 36;  // of a UUID

std::string named(std::string_view mark, std::string_view rest) {
  return fmt::format("{}{}{}", Scanner::kStagePrefix, mark, rest);
}

fs::path lockIn(const fs::path& folder, std::string_view token) { return folder / named(kLock, token); }

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// What stands behind prefix and mark in a name of ours: "UUID-NUMBER", or the lock's "UUID". Somebody else's folder may
// have a name that only begins like ours.
std::optional<std::string_view> tokenOf(std::string_view name, std::string_view mark) {
  for (const std::string_view part : {Scanner::kStagePrefix, mark}) {
    if (!name.starts_with(part)) return std::nullopt;
    name.remove_prefix(part.size());
  }
  const auto token = name.substr(0, kTokenLength);
  const auto rest = name.substr(token.size());
  const bool isWhole = mark == kLock ? rest.empty() : rest.starts_with('-') && isNumber(rest.substr(1));
  return isUuid(token) && isWhole ? std::optional(token) : std::nullopt;
}

}  // namespace

std::shared_ptr<StagingLock> StagingLock::of(const fs::path& folder) {
  static std::mutex mutex;
  static std::map<fs::path, std::weak_ptr<StagingLock>> held;
  const std::lock_guard guard(mutex);
  std::erase_if(held, [](const auto& entry) { return entry.second.expired(); });
  if (auto known = held[folder].lock()) return known;
  auto made = std::make_shared<StagingLock>(folder);
  held[folder] = made;
  return made;
}

StagingLock::StagingLock(const fs::path& folder)
    : folder_(folder), token_(newUuid()), lock_(makeLockedFolder(lockIn(folder, token_))) {}

StagingLock::~StagingLock() { FS::removeQuietly(lockIn(folder_, token_)); }

fs::path StagingLock::newStage() { return folder_ / named({}, fmt::format("{}-{}", token_, ++given_)); }

fs::path newAside(const fs::path& target) { return target.parent_path() / named(kAside, newUuid() + "-0"); }

fs::path asideOf(const fs::path& stage) {
  const std::string name = stage.filename().string();
  return stage.parent_path() / named(kAside, std::string_view(name).substr(Scanner::kStagePrefix.size()));
}

fs::path stageOf(const fs::path& aside) {
  const std::string name = aside.filename().string();
  return aside.parent_path() / named({}, std::string_view(name).substr(Scanner::kStagePrefix.size() + kAside.size()));
}

bool isStageName(std::string_view name) { return tokenOf(name, {}) || tokenOf(name, kAside) || tokenOf(name, kLock); }

// A lock is made before anything that it guards, and goes after it.
void sweepStages(const fs::path& folder) {
  std::vector<fs::path> locks;
  for (const auto& name : FS::childNames(folder)) {
    if (tokenOf(name, kLock)) locks.push_back(folder / name);
    const auto token = tokenOf(name, {});
    if (token && !isFolderLocked(lockIn(folder, *token))) FS::removeQuietly(folder / name);
  }
  for (const auto& path : locks) {
    if (const auto lock = lockOfAbandoned(path)) FS::removeQuietly(path);
  }
}

}  // namespace orvanta
