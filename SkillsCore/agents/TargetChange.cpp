#include "agents/TargetChange.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

#include "content/Scanner.h"
#include "files/TreeCopy.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The name carries the process, so that what is left by one that has ended can be told from work in progress.
fs::path stageBeside(const fs::path& target) {
  return target.parent_path() / (std::string(Scanner::kStagePrefix) + std::to_string(::getpid()) + "-" + newUuid());
}

bool belongsToEndedProcess(std::string_view stageName) {
  const std::string_view digits = stageName.substr(Scanner::kStagePrefix.size());
  pid_t process = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), process);
  if (error != std::errc{} || process <= 0 || end == digits.data() + digits.size() || *end != '-') return false;
  return ::kill(process, 0) != 0 && errno == ESRCH;
}

void removeQuietly(const fs::path& path) noexcept {
  try {
    FS::removeAny(path);
  } catch (const std::exception&) {
    return;  // swept up later
  }
}

SkillsError notAsExpected(const fs::path& target, FS::Kind expected) {
  std::string reason = ": it is no longer a plain file";
  if (expected == FS::Kind::symlink) reason = ": expected a link but found a real file or directory";
  if (expected == FS::Kind::directory) reason = ": it is no longer a directory";
  return SkillsError::refused("Refusing to remove " + target.string() + reason);
}

}  // namespace

TargetChange::TargetChange(TargetChange&& other) noexcept
    : kind_(std::exchange(other.kind_, Kind::none)),
      target_(std::move(other.target_)),
      stage_(std::move(other.stage_)) {}

TargetChange& TargetChange::operator=(TargetChange&& other) noexcept {
  if (this == &other) return *this;
  takeBack();
  kind_ = std::exchange(other.kind_, Kind::none);
  target_ = std::move(other.target_);
  stage_ = std::move(other.stage_);
  return *this;
}

TargetChange::~TargetChange() { takeBack(); }

TargetChange TargetChange::putLink(const fs::path& source, const fs::path& target, FS::Kind expected) {
  if (expected == FS::Kind::absent) {
    FS::createSymlink(source, target);  // fails where something stands
    return {Kind::placed, target, stageBeside(target)};
  }
  return exchangeFor(target, expected, [&](const fs::path& stage) { FS::createSymlink(source, stage); });
}

TargetChange TargetChange::putCopy(const fs::path& source, const fs::path& target, FS::Kind expected) {
  if (expected != FS::Kind::absent) {
    return exchangeFor(target, expected, [&](const fs::path& stage) { FS::copyTree(source, stage); });
  }
  const fs::path stage = stageBeside(target);
  try {
    FS::copyTree(source, stage);
    FS::renameExclusive(stage, target);
  } catch (...) {
    removeQuietly(stage);
    throw;
  }
  return {Kind::placed, target, stage};
}

TargetChange TargetChange::takeAway(const fs::path& target, FS::Kind expected) {
  const fs::path stage = stageBeside(target);
  FS::renameExclusive(target, stage);
  TargetChange change(Kind::takenAway, target, stage);
  if (FS::kind(stage) != expected) throw notAsExpected(target, expected);
  return change;
}

TargetChange TargetChange::exchangeFor(const fs::path& target, FS::Kind expected, const Make& make) {
  const fs::path stage = stageBeside(target);
  try {
    make(stage);
    FS::exchange(stage, target);
  } catch (...) {
    removeQuietly(stage);
    throw;
  }
  TargetChange change(Kind::exchanged, target, stage);
  if (FS::kind(stage) != expected) throw notAsExpected(target, expected);
  return change;
}

void TargetChange::keep() noexcept {
  const Kind kind = std::exchange(kind_, Kind::none);
  if (kind == Kind::exchanged || kind == Kind::takenAway) removeQuietly(stage_);
}

void TargetChange::takeBack() {
  const Kind kind = std::exchange(kind_, Kind::none);
  try {
    switch (kind) {
      case Kind::none: return;
      case Kind::placed: FS::renameExclusive(target_, stage_); break;
      case Kind::exchanged: FS::exchange(stage_, target_); break;
      case Kind::takenAway: return FS::renameExclusive(stage_, target_);
    }
    FS::removeAny(stage_);
  } catch (const std::exception&) {
    return;  // somebody else changed the place meanwhile; what is there is theirs
  }
}

void sweepStages(const fs::path& folder) {
  for (const auto& child : FS::children(folder)) {
    const std::string name = child.filename().string();
    if (name.starts_with(Scanner::kStagePrefix) && belongsToEndedProcess(name)) removeQuietly(child);
  }
}

}  // namespace orvanta
