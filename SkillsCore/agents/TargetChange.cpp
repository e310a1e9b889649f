#include "agents/TargetChange.h"

#include <utility>

#include "content/TreeTransfer.h"
#include "files/Paths.h"
#include "files/TreeCopy.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

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
  // Somebody may have worked in it since.
  if (!note.contentStamp.empty() && measureTree(path).stamp != note.contentStamp) return false;
  return isLink ? FS::linkDestination(path) == note.linkTo : isKnown;
}

// Looks once more when it has been moved away from where others reach it, and where an earlier try may have left it.
void takeBackPlaced(const TargetChange::Note& note, const fs::path& aside) {
  if (FS::exists(aside) && isObject(aside, note.content)) return FS::removeAny(aside);  // killed while it went
  if (!FS::exists(aside)) {
    if (!isWhatWasPut(note.target, note)) return;
    FS::renameExclusive(note.target, aside);
  }
  if (isWhatWasPut(aside, note)) return FS::removeAny(aside);
  FS::renameExclusive(aside, note.target);
}

void takeBackExchanged(const TargetChange::Note& note) {
  FS::settleExchange(note.stage, note.target);
  FS::removeAny(stageOf(note.stage));
  if (!FS::exists(note.stage)) return;
  if (isObject(note.stage, note.content)) return FS::removeAny(note.stage);  // not made, or killed while it went
  if (!isWhatWasPut(note.target, note)) return keepAside(note);
  FS::exchange(note.stage, note.target);
  if (isWhatWasPut(note.stage, note)) return FS::removeAny(note.stage);
  FS::exchange(note.stage, note.target);
  keepAside(note);
}

}  // namespace

TargetChange::TargetChange(TargetChange&& other) noexcept
    : note_(std::exchange(other.note_, {})),
      expected_(other.expected_),
      isMade_(other.isMade_),
      lock_(std::move(other.lock_)) {}

TargetChange& TargetChange::operator=(TargetChange&& other) noexcept {
  if (this == &other) return *this;
  undo();
  note_ = std::exchange(other.note_, {});
  expected_ = other.expected_;
  isMade_ = other.isMade_;
  lock_ = std::move(other.lock_);
  return *this;
}

TargetChange::~TargetChange() { undo(); }

TargetChange TargetChange::link(const fs::path& source, const fs::path& target, FS::Kind expected) {
  if (expected == FS::Kind::absent) {
    return {{.kind = Kind::placedLink, .target = target, .stage = newAside(target), .linkTo = standardized(source)},
            expected};
  }
  return withContent(target, expected, [&](const fs::path& place) { FS::createSymlink(source, place); });
}

TargetChange TargetChange::copy(const fs::path& source, const fs::path& target, FS::Kind expected) {
  return withContent(target, expected, [&](const fs::path& place) { FS::copyTree(source, place); });
}

TargetChange TargetChange::move(const fs::path& made, const fs::path& target, FS::Kind expected) {
  return withContent(target, expected, [&](const fs::path& place) { FS::renameExclusive(made, place); });
}

TargetChange TargetChange::withContent(const fs::path& target, FS::Kind expected,
                                       const std::function<void(const fs::path& place)>& make) {
  auto lock = StagingLock::of(target.parent_path());
  const fs::path stage = lock->newStage();
  Note note{.kind = Kind::placed, .target = target, .stage = stage};
  if (expected != FS::Kind::absent) {
    note.kind = Kind::exchanged;
    note.stage = asideOf(stage);
    note.replaced = FS::identity(target);
  }
  try {
    make(stage);
  } catch (const std::exception&) {
    FS::removeQuietly(stage);
    throw;
  }
  note.content = FS::identity(stage);
  if (FS::isDirectory(stage)) note.contentStamp = measureTree(stage).stamp;
  TargetChange change(std::move(note), expected);
  change.lock_ = std::move(lock);
  return change;
}

TargetChange TargetChange::removal(const fs::path& target, FS::Kind expected) {
  return {{.kind = Kind::takenAway, .target = target, .stage = newAside(target), .replaced = FS::identity(target)},
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
    lock_.reset();
  } catch (const SkillsError&) {
    undo();
    const bool isPlaced = expected_ == FS::Kind::absent;
    if (isPlaced && FS::exists(note_.target)) throw notAsExpected(note_.target, expected_);
    throw;
  }
}

void TargetChange::moveAside() {
  if (note_.kind == Kind::exchanged) {
    FS::renameExclusive(stageOf(note_.stage), note_.stage);
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
  if (note.kind == Kind::exchanged || note.kind == Kind::takenAway) FS::removeAny(note.stage);
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
    case Kind::placedLink: return takeBackPlaced(note, note.stage);
    case Kind::placed: FS::removeAny(note.stage); return takeBackPlaced(note, asideOf(note.stage));
    case Kind::exchanged: return takeBackExchanged(note);
    case Kind::takenAway:
      if (!FS::exists(note.stage)) return;
      return FS::exists(note.target) ? keepAside(note) : FS::renameExclusive(note.stage, note.target);
  }
}

}  // namespace orvanta
