#include "engine/MoveRecovery.h"

#include "engine/LibraryMove.h"
#include "engine/MoveJournal.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

using MoveJournal::Arrival;

SkillsError isBeingMoved(const Paths& to) {
  return SkillsError::conflict("The library is being moved to " + to.base().string() +
                               " by another process; wait until it has finished and try again");
}

SkillsError unclear(const Paths& at, const std::string& what) {
  return SkillsError::conflict(what + ". If the library is whole at " + at.base().string() + ", remove " +
                               at.moveJournal().string() + " and try again");
}

// A folder can have been named by way of links.
bool isSame(const std::filesystem::path& a, const std::filesystem::path& b) {
  return a == b || FS::resolved(a) == FS::resolved(b);
}

// Held by whoever works on a move, up to its end. Nothing when that takes longer, or the library left the place.
std::optional<LibraryLock> lockOf(const Paths& paths, std::chrono::milliseconds patience) {
  try {
    return LibraryLock::acquire(paths.lock(), patience);
  } catch (const SkillsError&) {
    return std::nullopt;
  }
}

bool hasLibrary(const Paths& paths) { return FS::isDirectory(paths.skills()) && FS::resolvesToFile(paths.database()); }

Paths finish(const LibraryMove& move, const UserFolders& user) {
  if (!hasLibrary(move.to))
    throw unclear(move.from, "The library was moved to " + move.to.base().string() + ", but it is not there");
  SkillStore store(move.to.database());
  static_cast<void>(move.finish(store, user));
  return move.to;
}

// The library is leaving this place, as its journal says; the other place may know of it or not.
Paths settleDeparture(const Paths& from, const UserFolders& user, std::chrono::milliseconds patience) {
  const auto announced = MoveJournal::departure(from);
  if (!announced) return from;
  const Paths to(announced->to);
  const auto lock = lockOf(from, patience);
  // Whoever held the lock before may have finished it by now, or taken it back.
  const auto departure = MoveJournal::departure(from);
  if (!departure) return hasLibrary(to) ? to : from;
  if (!lock) throw isBeingMoved(to);
  const auto arrival = MoveJournal::arrival(to);
  const bool isPair = departure->to == to.base() && arrival && isSame(arrival->from, from.base());
  LibraryMove move{.from = from, .to = to};
  if (!isPair) {
    if (departure->moved)
      throw unclear(from, "The library was moved to " + to.base().string() + ", which cannot be reached");
    if (!hasLibrary(from))
      throw unclear(
          from, "A move of the library to " + to.base().string() + " was cut short, and that folder cannot be reached");
    move.takeBack(LibraryMove::Stage::announced);
    return from;
  }
  move.createdFolders = departure->createdFolders;
  move.renames = arrival->renames;
  const auto lockOfNew = lockOf(to, patience);
  if (!lockOfNew) throw isBeingMoved(to);
  if (departure->moved) return finish(move, user);
  move.takeBack(LibraryMove::Stage::begun);
  return from;
}

// A library has come to this place, as its journal says, or would have.
Paths settleArrival(const Paths& to, const Arrival& arrival, const UserFolders& user,
                    std::chrono::milliseconds patience) {
  const Paths from(arrival.from);
  const auto departure = MoveJournal::departure(from);
  if (departure && isSame(departure->to, to.base())) {
    const Paths settled = settleDeparture(from, user, patience);
    if (isSame(settled.base(), to.base())) return to;
    throw SkillsError::conflict("The move of the library to " + to.base().string() +
                                " was cut short and has been taken back; the library is at " + from.base().string());
  }
  if (!arrival.moved) {
    throw unclear(
        to, "A move of the library from " + from.base().string() + " was cut short, and that folder cannot be reached");
  }
  const auto lock = lockOf(to, patience);
  if (!lock) throw isBeingMoved(to);
  MoveJournal::remove(to);
  return to;
}

}  // namespace

Paths settledLibrary(const Paths& paths, const UserFolders& user, std::chrono::milliseconds patience) {
  if (!MoveJournal::exists(paths)) return paths;
  if (const auto arrival = MoveJournal::arrival(paths)) return settleArrival(paths, *arrival, user, patience);
  if (MoveJournal::departure(paths)) return settleDeparture(paths, user, patience);
  if (!MoveJournal::exists(paths)) return paths;
  throw unclear(paths, paths.moveJournal().string() + " cannot be read");
}

void requireNotMoving(const Paths& paths) {
  const auto departure = MoveJournal::exists(paths) ? MoveJournal::departure(paths) : std::nullopt;
  if (departure) throw isBeingMoved(Paths(departure->to));
}

}  // namespace orvanta
