#include "engine/LibraryMove.h"

#include <algorithm>
#include <functional>
#include <iterator>

#include "content/TreeTransfer.h"
#include "engine/MoveJournal.h"
#include "engine/Relinking.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"
#include "platform/AtomicRename.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

bool isLinkTo(const fs::path& link, const fs::path& destination) {
  return FS::kind(link) == FS::Kind::symlink && FS::linkDestination(link) == destination;
}

// Moves a folder to where meanwhile a program that looked for it may have made one of its name.
void mergeBack(const fs::path& from, const fs::path& to) {
  if (FS::isDirectory(from) && FS::isDirectory(to)) {
    for (const auto& name : FS::childNames(from)) mergeBack(from / name, to / name);
    if (FS::removeIfEmpty(from)) return;
    throw SkillsError::conflict("Cannot move everything in " + from.string() + " back to " + to.string() +
                                "; do it by hand");
  }
  FS::renameExclusive(from, to);
}

}  // namespace

void removeDatabase(const Paths& base) {
  for (const auto* suffix : {"-journal", "-wal", "-shm", ""}) FS::removeAny(base.database().string() + suffix);
}

bool isIncidental(std::string_view name) {
  return name == ".DS_Store" || name == ".orvanta.lock" || MoveJournal::isJournalName(name);
}

void LibraryMove::takeBack(Stage stage) const {
  if (stage == Stage::begun) {
    renames ? giveBackFolders() : removeCopies();
    removeDatabase(to);
    FS::flushFolder(from.base());
    MoveJournal::remove(to);
  }
  if (stage != Stage::announced) FS::removeAny(to.lock());
  fs::path created = to.base();
  for (int i = 0; i < createdFolders && FS::removeIfEmpty(created); ++i) created = created.parent_path();
  MoveJournal::remove(from);
}

void LibraryMove::giveBackFolders() const {
  for (const auto* name : {"bin", "logs", "cache"}) {
    if (FS::isDirectory(to.base() / name)) mergeBack(to.base() / name, from.base() / name);
  }
  giveBackSkills();
}

void LibraryMove::giveBackSkills() const {
  // Where names cannot be exchanged in one step, either of the two can be under the name in between.
  const fs::path between = from.skills().string() + kExchangeSuffix;
  if (isLinkTo(between, to.skills())) FS::removeSymlink(between);
  if (FS::isDirectory(between)) {
    if (isLinkTo(from.skills(), to.skills())) FS::removeSymlink(from.skills());
    FS::renameExclusive(between, from.skills());
  }
  if (FS::isDirectory(to.skills())) {
    if (isLinkTo(from.skills(), to.skills())) {
      FS::exchange(from.skills(), to.skills());
    } else {
      FS::renameExclusive(to.skills(), from.skills());
    }
  }
  if (isLinkTo(to.skills(), to.skills())) FS::removeSymlink(to.skills());
}

void LibraryMove::removeCopies() const {
  if (!FS::isDirectory(from.skills()) || !FS::resolvesToFile(from.database())) {
    throw SkillsError::conflict("The library is not whole at " + from.base().string() + ", so its copy at " +
                                to.base().string() + " stays");
  }
  for (const auto* name : folders) FS::removeAny(to.base() / name);
}

LibraryMove::Completion LibraryMove::finish(SkillStore& store, const UserFolders& user) const {
  Completion done;
  const auto succeeds = [&](const std::function<void()>& step) {
    try {
      step();
      return true;
    } catch (const std::exception& error) {
      done.errors.emplace_back(error.what());
      return false;
    }
  };
  succeeds(
      [&] { MoveJournal::write(to, MoveJournal::Arrival{.from = from.base(), .renames = renames, .moved = true}); });
  const bool isSaved = succeeds([&] { done.isChosen = choose(user); });
  bool isEveryLinkDone = false;
  const bool isRelinked = succeeds([&] {
    auto links = Relinking(store, user, from, to).run();
    done.relinked = links.relinked;
    isEveryLinkDone = !links.isUnfinished;
    done.errors.insert(done.errors.end(), std::make_move_iterator(links.errors.begin()),
                       std::make_move_iterator(links.errors.end()));
  });
  // Until then the journal in the old place leads the next start to the new one, and the old links still lead to
  // skills.
  if (isSaved && isRelinked && isEveryLinkDone) succeeds([&] { leaveOldPlace(done.leftBehind); });
  return done;
}

bool LibraryMove::choose(const UserFolders& user) const {
  const fs::path chosen = FS::resolved(Paths::resolveDefault(user, std::nullopt).base());
  if (chosen == FS::resolved(to.base())) return true;
  if (chosen != FS::resolved(from.base())) return false;
  const bool isDefault = FS::resolved(Paths::defaultBase(user)) == FS::resolved(to.base());
  Paths::writeRepoPath(user, isDefault ? std::nullopt : std::optional(to.base()));
  FS::flushFolder(Paths::configFile(user).parent_path());
  return true;
}

void LibraryMove::leaveOldPlace(std::vector<std::string>& leftBehind) const {
  emptyOldPlace();
  leftBehind = foreignNames();
  FS::removeAny(from.lock());
  MoveJournal::remove(from);
  FS::removeIfEmpty(from.base());
  MoveJournal::remove(to);
  FS::flushFolder(from.base().parent_path());
}

void LibraryMove::emptyOldPlace() const {
  const fs::path between = from.skills().string() + kExchangeSuffix;
  for (const auto& link : {from.skills(), between}) {
    if (isLinkTo(link, to.skills())) FS::removeSymlink(link);
  }
  for (const auto* name : folders) {
    const fs::path old = from.base() / name;
    // A program that looked for the library meanwhile may have made its empty folders anew.
    FS::removeIfEmpty(old / "repos");
    if (!FS::removeIfEmpty(old) && !renames && FS::isDirectory(to.base() / name)) removeCopied(name);
  }
  removeDatabase(from);
}

// What was copied goes by another name first, so that a kill leaves no part of it that would pass for more. Somebody
// may have worked there since, by an old link say: it then stays, out of the way.
void LibraryMove::removeCopied(const std::string& name) const {
  const fs::path old = from.base() / name;
  const fs::path leaving = from.base() / (".leaving-" + name);
  FS::removeAny(leaving);
  if (!FS::isDirectory(old)) return;
  if (!isSameTree(old, to.base() / name)) {
    return FS::renameExclusive(old, old.string() + "-before-" + newUuid().substr(0, 8));
  }
  FS::renameExclusive(old, leaving);
  FS::removeAny(leaving);
}

std::vector<std::string> LibraryMove::foreignNames() const {
  auto names = FS::childNames(from.base());
  std::erase_if(names, [](const std::string& name) { return isIncidental(name); });
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace orvanta
