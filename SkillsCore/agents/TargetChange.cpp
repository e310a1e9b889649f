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

// New content waits under the prefix, what it replaces under the prefix and this.
constexpr std::string_view kAside = "old-";

// The names carry the process, so that what is left by one that has ended can be told from work in progress.
fs::path beside(const fs::path& target, std::string_view mark) {
  std::string name(Scanner::kStagePrefix);
  name.append(mark).append(std::to_string(::getpid())).append("-").append(newUuid());
  return target.parent_path() / name;
}

// Where the content that goes to `aside` first is made.
fs::path preparedFor(const fs::path& aside) {
  std::string name = aside.filename().string();
  return aside.parent_path() / name.erase(Scanner::kStagePrefix.size(), kAside.size());
}

// The process of a staging name. Somebody else's folder may have a name that only begins like ours.
std::optional<pid_t> makerOf(std::string_view name, std::string_view mark) {
  for (const std::string_view part : {Scanner::kStagePrefix, mark}) {
    if (!name.starts_with(part)) return std::nullopt;
    name.remove_prefix(part.size());
  }
  pid_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  if (error != std::errc{} || process <= 0) return std::nullopt;
  name.remove_prefix(static_cast<std::size_t>(end - name.data()));
  if (name.empty() || name.front() != '-' || !isUuid(name.substr(1))) return std::nullopt;
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

// What waits aside stays for its owner, where it cannot go back.
void keepAside(const TargetChange::Note& note) {
  FS::renameExclusive(note.stage, note.target.string() + "-before-" + newUuid().substr(0, 8));
}

// Whatever was changed in it since: a part of it may be removed already.
bool isObject(const fs::path& path, const FS::Identity& noted) {
  const FS::Identity found = FS::identity(path);
  return found.inode == noted.inode && found.type == noted.type;
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
  const fs::path aside = beside(note.target, kAside);
  FS::renameExclusive(note.target, aside);
  if (isWhatWasPut(aside, note)) return FS::removeAny(aside);
  FS::renameExclusive(aside, note.target);
}

void takeBackExchanged(const TargetChange::Note& note) {
  FS::settleExchange(note.stage, note.target);
  FS::removeAny(preparedFor(note.stage));
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
  if (expected == FS::Kind::absent) {
    return {{.kind = Kind::placedLink, .target = target, .linkTo = standardized(source)}, expected};
  }
  Note note{
      .kind = Kind::exchanged, .target = target, .stage = beside(target, kAside), .replaced = FS::identity(target)};
  FS::createSymlink(source, preparedFor(note.stage));
  note.content = FS::identity(preparedFor(note.stage));
  return {std::move(note), expected};
}

TargetChange TargetChange::copy(const fs::path& source, const fs::path& target, FS::Kind expected) {
  return withContent(target, expected, [&](const fs::path& place) { FS::copyTree(source, place); });
}

TargetChange TargetChange::move(const fs::path& made, const fs::path& target, FS::Kind expected) {
  return withContent(target, expected, [&](const fs::path& place) { FS::renameExclusive(made, place); });
}

TargetChange TargetChange::withContent(const fs::path& target, FS::Kind expected,
                                       const std::function<void(const fs::path& place)>& make) {
  Note note{.kind = Kind::placed, .target = target, .stage = beside(target, {})};
  fs::path made = note.stage;
  if (expected != FS::Kind::absent) {
    note.kind = Kind::exchanged;
    note.stage = beside(target, kAside);
    note.replaced = FS::identity(target);
    made = preparedFor(note.stage);
  }
  try {
    make(made);
  } catch (const std::exception&) {
    FS::removeQuietly(made);
    throw;
  }
  note.content = FS::identity(made);
  return {std::move(note), expected};
}

TargetChange TargetChange::removal(const fs::path& target, FS::Kind expected) {
  return {
      {.kind = Kind::takenAway, .target = target, .stage = beside(target, kAside), .replaced = FS::identity(target)},
      expected};
}

void TargetChange::make() {
  try {
    switch (note_.kind) {
      case Kind::none: return;
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
    FS::renameExclusive(preparedFor(note_.stage), note_.stage);
    FS::exchange(note_.stage, note_.target);
  } else {
    FS::renameExclusive(note_.target, note_.stage);
  }
  isMade_ = true;
  if (FS::kind(note_.stage) != expected_) throw notAsExpected(note_.target, expected_);
}

void TargetChange::keep() noexcept {
  try {
    finish();
  } catch (const std::exception&) {
    return;
  }
}

void TargetChange::finish() {
  if (!isMade_) return undo();
  const Note note = std::exchange(note_, {});
  if (!note.stage.empty()) FS::removeAny(note.stage);
}

void TargetChange::finish(const Note& note) {
  if (note.kind != Kind::exchanged && note.kind != Kind::takenAway) return;
  FS::settleExchange(note.stage, note.target);
  if (!FS::exists(note.stage)) return;
  const bool isExpected = isObject(note.stage, note.replaced) || isObject(note.stage, note.content);
  isExpected ? FS::removeAny(note.stage) : keepAside(note);
}

// What cannot be taken back now, the next start takes back by the journal.
void TargetChange::undo() noexcept {
  Note note = note_;
  note_.kind = Kind::none;
  if (note.kind == Kind::none || (note.kind == Kind::placedLink && !isMade_)) return;
  try {
    takeBack(note);
  } catch (const std::exception&) {
    return;
  }
}

void TargetChange::takeBack(const Note& note) {
  switch (note.kind) {
    case Kind::none: return;
    case Kind::placedLink: return takeBackPlaced(note);
    case Kind::placed: FS::removeAny(note.stage); return takeBackPlaced(note);
    case Kind::exchanged: return takeBackExchanged(note);
    case Kind::takenAway:
      if (!FS::exists(note.stage)) return;
      return FS::exists(note.target) ? keepAside(note) : FS::renameExclusive(note.stage, note.target);
  }
}

bool isStageName(std::string_view name) { return makerOf(name, {}) || makerOf(name, kAside); }

void sweepStages(const fs::path& folder) {
  for (const auto& name : FS::childNames(folder)) {
    const auto maker = makerOf(name, {});
    if (maker && ::kill(*maker, 0) != 0 && errno == ESRCH) FS::removeQuietly(folder / name);
  }
}

}  // namespace orvanta
