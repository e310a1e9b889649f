#include "agents/TargetChange.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <optional>
#include <utility>

#include "content/Scanner.h"
#include "files/Paths.h"
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

// The process of a staging name. Somebody else's folder may have a name that only begins like ours.
std::optional<pid_t> makerOf(std::string_view name) {
  if (!name.starts_with(Scanner::kStagePrefix)) return std::nullopt;
  const std::string_view digits = name.substr(Scanner::kStagePrefix.size());
  pid_t process = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), process);
  if (error != std::errc{} || process <= 0) return std::nullopt;
  const std::string_view rest = digits.substr(static_cast<std::size_t>(end - digits.data()));
  if (rest.empty() || rest.front() != '-' || !isUuid(rest.substr(1))) return std::nullopt;
  return process;
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

// What stood at the target stays for its owner, where it cannot go back. Nothing there is no failure.
void keepAside(const TargetChange::Note& note) noexcept {
  try {
    FS::renameExclusive(note.stage, note.target.string() + "-before-" + newUuid().substr(0, 8));
  } catch (const std::exception&) {
    return;
  }
}

bool isWhatWasPut(const fs::path& path, const TargetChange::Note& note) {
  const bool isLink = note.kind == TargetChange::Kind::placedLink;
  const bool isKnown = note.content != FS::Identity{};  // a link only once it is made
  if (isKnown && !FS::isKnownAs(path, note.content)) return false;
  return isLink ? FS::linkDestination(path) == note.linkTo : isKnown;
}

// Looks once more when it has been moved away from where others reach it.
void takeBackPlaced(const TargetChange::Note& note) {
  if (!isWhatWasPut(note.target, note)) return;
  const fs::path aside = stageBeside(note.target);
  FS::renameExclusive(note.target, aside);
  if (isWhatWasPut(aside, note)) return FS::removeAny(aside);
  FS::renameExclusive(aside, note.target);
}

void takeBackExchanged(const TargetChange::Note& note) {
  if (!FS::exists(note.stage)) return;
  if (FS::isKnownAs(note.stage, note.content)) return FS::removeAny(note.stage);  // it was not made
  if (!FS::isKnownAs(note.target, note.content)) return keepAside(note);
  FS::exchange(note.stage, note.target);
  if (FS::isKnownAs(note.stage, note.content)) return FS::removeAny(note.stage);
  FS::exchange(note.stage, note.target);
  keepAside(note);
}

}  // namespace

TargetChange::TargetChange(TargetChange&& other) noexcept
    : note_(std::exchange(other.note_, {})), expected_(other.expected_), isMade_(other.isMade_) {}

TargetChange& TargetChange::operator=(TargetChange&& other) noexcept {
  if (this == &other) return *this;
  undo();
  note_ = std::exchange(other.note_, {});
  expected_ = other.expected_;
  isMade_ = other.isMade_;
  return *this;
}

TargetChange::~TargetChange() { undo(); }

TargetChange TargetChange::link(const fs::path& source, const fs::path& target, FS::Kind expected) {
  Note note{.kind = Kind::placedLink, .target = target, .stage = {}, .linkTo = standardized(source), .content = {}};
  if (expected == FS::Kind::absent) return {std::move(note), expected};
  note.kind = Kind::exchanged;
  note.stage = stageBeside(target);
  FS::createSymlink(source, note.stage);
  note.content = FS::identity(note.stage);
  return {std::move(note), expected};
}

TargetChange TargetChange::copy(const fs::path& source, const fs::path& target, FS::Kind expected) {
  const Kind kind = expected == FS::Kind::absent ? Kind::placed : Kind::exchanged;
  Note note{.kind = kind, .target = target, .stage = stageBeside(target), .linkTo = {}, .content = {}};
  try {
    FS::copyTree(source, note.stage);
  } catch (const std::exception&) {
    FS::removeQuietly(note.stage);
    throw;
  }
  note.content = FS::identity(note.stage);
  return {std::move(note), expected};
}

TargetChange TargetChange::removal(const fs::path& target, FS::Kind expected) {
  return {{.kind = Kind::takenAway, .target = target, .stage = stageBeside(target), .linkTo = {}, .content = {}},
          expected};
}

void TargetChange::make() {
  try {
    switch (note_.kind) {
      case Kind::none:
      case Kind::leftBehind: return;
      case Kind::placedLink:
        FS::createSymlink(note_.linkTo, note_.target);  // fails where something stands
        note_.content = FS::identity(note_.target);
        break;
      case Kind::placed: FS::renameExclusive(note_.stage, note_.target); break;
      case Kind::exchanged:
      case Kind::takenAway: moveAside(); break;
    }
    isMade_ = true;
  } catch (const SkillsError&) {
    undo();
    const bool isPlaced = expected_ == FS::Kind::absent;
    if (isPlaced && FS::exists(note_.target)) throw notAsExpected(note_.target, expected_);
    throw;
  }
}

void TargetChange::moveAside() {
  if (note_.kind == Kind::exchanged) {
    FS::exchange(note_.stage, note_.target);
  } else {
    FS::renameExclusive(note_.target, note_.stage);
  }
  isMade_ = true;
  if (FS::kind(note_.stage) != expected_) throw notAsExpected(note_.target, expected_);
}

void TargetChange::keep() noexcept { finish(std::exchange(note_, {})); }

void TargetChange::finish() {
  const Note note = std::exchange(note_, {});
  if (!note.stage.empty()) FS::removeAny(note.stage);
}

void TargetChange::finish(const Note& note) noexcept {
  if (!note.stage.empty()) FS::removeQuietly(note.stage);
}

void TargetChange::undo() noexcept {
  const Kind kind = std::exchange(note_.kind, Kind::none);
  if (kind == Kind::none || (kind == Kind::placedLink && !isMade_)) return;
  Note note = note_;
  note.kind = kind;
  try {
    takeBack(note);
  } catch (const std::exception&) {
    // Somebody else changed the place meanwhile; what is there is theirs, and what was there before is kept for them.
    if (isMade_ && kind != Kind::placed && kind != Kind::placedLink) keepAside(note);
  }
}

bool TargetChange::isInPlace(const Note& note) {
  return note.kind != Kind::takenAway && note.kind != Kind::leftBehind && isWhatWasPut(note.target, note);
}

void TargetChange::takeBack(const Note& note) {
  switch (note.kind) {
    case Kind::none: return;
    case Kind::placedLink: return takeBackPlaced(note);
    case Kind::placed: FS::removeAny(note.stage); return takeBackPlaced(note);
    case Kind::exchanged: return takeBackExchanged(note);
    case Kind::leftBehind: return FS::removeAny(note.stage);
    case Kind::takenAway:
      if (!FS::exists(note.stage)) return;
      return FS::exists(note.target) ? keepAside(note) : FS::renameExclusive(note.stage, note.target);
  }
}

bool isStageName(std::string_view name) { return makerOf(name).has_value(); }

void sweepStages(const fs::path& folder) {
  for (const auto& name : FS::childNames(folder)) {
    const auto maker = makerOf(name);
    if (maker && ::kill(*maker, 0) != 0 && errno == ESRCH) FS::removeQuietly(folder / name);
  }
}

}  // namespace orvanta
