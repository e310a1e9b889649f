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
  if (error != std::errc{} || process <= 0) return false;
  const std::string_view rest = digits.substr(static_cast<std::size_t>(end - digits.data()));
  // Somebody else's folder may have a name that only begins like ours.
  if (rest.empty() || rest.front() != '-' || !isUuid(rest.substr(1))) return false;
  return ::kill(process, 0) != 0 && errno == ESRCH;
}

SkillsError notAsExpected(const fs::path& target, FS::Kind expected) {
  if (expected == FS::Kind::absent) {
    return SkillsError::refused("Refusing to replace \"" + target.string() +
                                "\": something appeared there meanwhile. It was left untouched; try again.");
  }
  std::string reason = ": it is no longer a plain file";
  if (expected == FS::Kind::symlink) reason = ": expected a link but found a real file or directory";
  if (expected == FS::Kind::directory) reason = ": it is no longer a directory";
  return SkillsError::refused("Refusing to remove " + target.string() + reason);
}

}  // namespace

TargetChange::TargetChange(TargetChange&& other) noexcept
    : kind_(std::exchange(other.kind_, Kind::none)),
      target_(std::move(other.target_)),
      stage_(std::move(other.stage_)),
      placed_(other.placed_) {}

TargetChange& TargetChange::operator=(TargetChange&& other) noexcept {
  if (this == &other) return *this;
  takeBack();
  kind_ = std::exchange(other.kind_, Kind::none);
  target_ = std::move(other.target_);
  stage_ = std::move(other.stage_);
  placed_ = other.placed_;
  return *this;
}

TargetChange::~TargetChange() { takeBack(); }

TargetChange TargetChange::putLink(const fs::path& source, const fs::path& target, FS::Kind expected) {
  if (expected != FS::Kind::absent) {
    return exchangeFor(target, expected, [&](const fs::path& stage) { FS::createSymlink(source, stage); });
  }
  try {
    FS::createSymlink(source, target);  // fails where something stands
  } catch (const SkillsError&) {
    if (FS::exists(target)) throw notAsExpected(target, expected);
    throw;
  }
  return {Kind::placed, target, {}, FS::identity(target)};
}

TargetChange TargetChange::putCopy(const fs::path& source, const fs::path& target, FS::Kind expected) {
  if (expected != FS::Kind::absent) {
    return exchangeFor(target, expected, [&](const fs::path& stage) { FS::copyTree(source, stage); });
  }
  const fs::path stage = stageBeside(target);
  try {
    FS::copyTree(source, stage);
    const FS::Identity placed = FS::identity(stage);
    FS::renameExclusive(stage, target);
    return {Kind::placed, target, stage, placed};
  } catch (const std::exception&) {
    FS::removeQuietly(stage);
    if (FS::exists(target)) throw notAsExpected(target, expected);
    throw;
  }
}

TargetChange TargetChange::takeAway(const fs::path& target, FS::Kind expected) {
  const fs::path stage = stageBeside(target);
  FS::renameExclusive(target, stage);
  TargetChange change(Kind::takenAway, target, stage, {});
  if (FS::kind(stage) != expected) throw notAsExpected(target, expected);
  return change;
}

TargetChange TargetChange::exchangeFor(const fs::path& target, FS::Kind expected, const Make& make) {
  const fs::path stage = stageBeside(target);
  FS::Identity placed;
  try {
    make(stage);
    placed = FS::identity(stage);
    FS::exchange(stage, target);
  } catch (...) {
    FS::removeQuietly(stage);
    throw;
  }
  TargetChange change(Kind::exchanged, target, stage, placed);
  if (FS::kind(stage) != expected) throw notAsExpected(target, expected);
  return change;
}

void TargetChange::keep() noexcept {
  const Kind kind = std::exchange(kind_, Kind::none);
  if (kind == Kind::exchanged || kind == Kind::takenAway) FS::removeQuietly(stage_);
}

void TargetChange::finish() {
  const Kind kind = std::exchange(kind_, Kind::none);
  if (kind == Kind::exchanged || kind == Kind::takenAway) FS::removeAny(stage_);
}

void TargetChange::takeBack() {
  const Kind kind = std::exchange(kind_, Kind::none);
  try {
    if (kind == Kind::placed) takeBackPlaced();
    if (kind == Kind::exchanged) takeBackExchanged();
    if (kind == Kind::takenAway) FS::renameExclusive(stage_, target_);
  } catch (const std::exception&) {
    // Somebody else changed the place meanwhile; what is there is theirs, and what was there before is kept for them.
    if (kind != Kind::placed) keepAside();
  }
}

void TargetChange::keepAside() noexcept {
  try {
    FS::renameExclusive(stage_, target_.string() + "-before-" + newUuid().substr(0, 8));
  } catch (const std::exception&) {
    return;  // nothing stands under the staging name
  }
}

void TargetChange::takeBackPlaced() {
  const fs::path stage = stageBeside(target_);
  FS::renameExclusive(target_, stage);
  if (FS::identity(stage) == placed_) return FS::removeAny(stage);
  FS::renameExclusive(stage, target_);
}

void TargetChange::takeBackExchanged() {
  FS::exchange(stage_, target_);
  if (FS::identity(stage_) == placed_) return FS::removeAny(stage_);
  FS::exchange(stage_, target_);
  keepAside();
}

void sweepStages(const fs::path& folder) {
  for (const auto& name : FS::childNames(folder)) {
    if (name.starts_with(Scanner::kStagePrefix) && belongsToEndedProcess(name)) FS::removeQuietly(folder / name);
  }
}

}  // namespace orvanta
