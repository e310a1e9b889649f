#include "engine/Relocation.h"

#include <array>
#include <set>
#include <utility>

#include "content/TreeTransfer.h"
#include "engine/MoveChecks.h"
#include "engine/MoveJournal.h"
#include "engine/PlanOrRefusal.h"
#include "engine/Relinking.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

using Stage = LibraryMove::Stage;

constexpr const char* kMoving = "Moving the library";
constexpr std::size_t kMovingSteps = std::size(LibraryMove::folders) + 2;  // and the database, and the final step

void stopIfAsked(const OperationContext& context) {
  if (context.stop.stop_requested()) throw SkillsError::refused("Stopped on request");
}

// Mounts of one disk under two names look like one file system but are not: only trying tells.
bool canRename(const Paths& from, const Paths& to) {
  const std::string name = "." + from.moveJournal().filename().string() + "-" + newUuid().substr(0, 8);
  FS::createSymlink(to.base(), from.base() / name);
  try {
    FS::renameExclusive(from.base() / name, to.base() / name);
    FS::removeSymlink(to.base() / name);
    return true;
  } catch (const SkillsError&) {
    FS::removeAny(from.base() / name);
    return false;
  }
}

void renameFolders(const LibraryMove& move, const OperationContext& context) {
  // Whoever reads a skill by its old path finds it, before and after, and there is no in between.
  FS::createSymlink(move.to.skills(), move.to.skills());
  FS::exchange(move.from.skills(), move.to.skills());
  std::size_t done = 0;
  context.report(kMoving, ++done, kMovingSteps);
  for (const auto* name : LibraryMove::folders) {
    const fs::path old = move.from.base() / name;
    if (!FS::isDirectory(old)) continue;
    FS::renameExclusive(old, move.to.base() / name);
    context.report(kMoving, ++done, kMovingSteps);
  }
}

// The copied folders as they were when they were copied.
using Stamps = std::vector<std::pair<fs::path, std::string>>;

Stamps copyFolders(const LibraryMove& move, const OperationContext& context) {
  Stamps stamps;
  std::size_t files = 0;
  for (const auto* name : LibraryMove::folders) {
    const fs::path old = move.from.base() / name;
    if (!FS::isDirectory(old)) continue;
    const TreeMeasure measure = measureTree(old);
    files += measure.files;
    stamps.emplace_back(old, measure.stamp);
  }
  std::size_t done = 0;
  for (const auto& [old, stamp] : stamps) {
    // Each file is told of twice: when it is copied, and when the copy is compared.
    copyAndCompare(old, move.to.base() / old.filename(), [&] {
      stopIfAsked(context);
      context.report("Copying the library", done++ / 2, files);
    });
  }
  return stamps;
}

void requireUnchanged(const Stamps& stamps) {
  for (const auto& [folder, stamp] : stamps) {
    if (measureTree(folder).stamp == stamp) continue;
    throw SkillsError::conflict("Something in " + folder.string() + " was changed while it was copied; try again");
  }
}

// From here on the library is at the new place. That the journal was replaced counts, also when the disk would not
// confirm it.
void pointOfNoReturn(const LibraryMove& move) {
  const MoveJournal::Departure moved{.to = move.to.base(), .createdFolders = move.createdFolders, .moved = true};
  try {
    MoveJournal::write(move.from, moved);
  } catch (const SkillsError&) {
    const auto written = MoveJournal::departure(move.from);
    if (!written || !written->moved) throw;
  }
}

// Why a move failed, and what it left.
SkillsError afterTakingBack(const LibraryMove& move, Stage stage, const SkillsError& error) {
  const std::string where = ". The library is still at " + move.from.base().string();
  try {
    move.takeBack(stage);
    return {error.kind(), error.message() + where};
  } catch (const SkillsError& second) {
    return {error.kind(), error.message() + where + ", but not everything could be taken back: " + second.message() +
                              ". The next start tries again"};
  }
}

}  // namespace

RelocationReport Relocation::move(const fs::path& destination, const OperationContext& context) {
  const Paths from = library_.paths;
  MoveChecks checks(library_, Paths(destination));
  if (checks.isHere()) return {.from = from.base(), .to = from.base(), .moved = false, .errors = {}, .leftBehind = {}};
  checks.require();

  LibraryMove move{.from = from, .to = Paths(destination), .createdFolders = checks.missingFolders()};
  Stage stage = Stage::announced;
  std::optional<LibraryLock> lock;
  std::optional<SkillStore> store;
  try {
    MoveJournal::write(from, MoveJournal::Departure{.to = move.to.base(), .createdFolders = move.createdFolders});
    store.emplace(carry(move, stage, lock, context));
  } catch (const SkillsError& error) {
    throw afterTakingBack(move, stage, error);
  } catch (const std::exception& error) {
    throw afterTakingBack(move, stage, SkillsError::io(error.what()));
  }
  library_.paths = move.to;
  library_.store = *std::move(store);
  context.report(kMoving, kMovingSteps, kMovingSteps);
  auto done = move.finish(library_.store, library_.user);
  return {.from = from.base(),
          .to = move.to.base(),
          .moved = true,
          .relinked = done.relinked,
          .errors = std::move(done.errors),
          .leftBehind = std::move(done.leftBehind),
          .isChosen = done.isChosen};
}

// Everything up to the moment from which nothing is taken back any more.
SkillStore Relocation::carry(LibraryMove& move, Stage& stage, std::optional<LibraryLock>& lock,
                             const OperationContext& context) {
  takeNewPlace(move, stage, lock);
  Stamps stamps;
  if (move.renames) {
    renameFolders(move, context);
  } else {
    const MoveChecks checks(library_, move.to);
    checks.requireRoom(checks.size());
    stamps = copyFolders(move, context);
  }
  SkillStore store = storeAtNewPlace(move);
  context.report(kMoving, kMovingSteps - 1, kMovingSteps);
  stopIfAsked(context);
  requireUnchanged(stamps);
  FS::flushFolder(move.to.base());
  FS::flushFolder(move.from.base());
  pointOfNoReturn(move);
  return store;
}

void Relocation::takeNewPlace(LibraryMove& move, Stage& stage, std::optional<LibraryLock>& lock) {
  FS::createDirectories(move.to.base());
  if (move.createdFolders > 0) FS::copyPermissions(move.from.base(), move.to.base());
  lock = LibraryLock::tryAcquire(move.to.lock());
  if (!lock) {
    throw SkillsError::conflict("Another process is using " + move.to.base().string() +
                                ", or nothing can be written there");
  }
  stage = Stage::placeTaken;
  const MoveChecks checks(library_, move.to);
  checks.requireEmpty();  // whoever had the lock before may have filled it
  move.renames = checks.isOnOneDisk() && canRename(move.from, move.to);
  stage = Stage::begun;
  MoveJournal::write(move.to, MoveJournal::Arrival{.from = move.from.base(), .renames = move.renames});
}

SkillStore Relocation::storeAtNewPlace(const LibraryMove& move) {
  library_.store.connection().copyTo(move.to.database().string());
  FS::copyPermissions(move.from.database(), move.to.database());
  SkillStore store(move.to.database());
  store.connection().requireSound();
  // The library may have been opened by another spelling of its path when a skill was installed.
  std::set<std::string> folders;
  for (const auto& skill : store.allSkills()) folders.insert(fs::path(skill.centralPath).parent_path().string());
  const fs::path oldSkills = FS::resolved(move.from.skills());
  std::erase_if(folders, [&](const std::string& folder) {
    return FS::resolvesToDirectory(folder) && FS::resolved(folder) != oldSkills;
  });
  store.connection().transaction([&] {
    for (const auto& folder : folders) store.moveSkills(folder, move.to.skills().string());
    store.logAudit(
        {.action = "relocate_library", .detail = move.from.base().string() + " → " + move.to.base().string()});
  });
  move.to.ensureDirectories();
  return store;
}

Plan Relocation::plan(const fs::path& destination) {
  const Paths to(destination);
  return planOrRefusal(to.base(), [&]() -> Plan {
    MoveChecks checks(library_, to);
    if (checks.isHere()) return {};
    checks.require();
    Plan plan;
    const auto add = [&](const fs::path& old) {
      if (FS::isCertainlyAbsent(old)) return;
      plan.push_back({.action = PlannedStep::Action::place,
                      .skillName = old.filename().string(),
                      .skillId = {},
                      .tool = {},
                      .path = (to.base() / old.filename()).string(),
                      .reason = {}});
    };
    for (const auto* name : LibraryMove::folders) add(library_.paths.base() / name);
    add(library_.paths.database());
    for (auto& step : Relinking(library_.store, library_.user, library_.paths, to).plan())
      plan.push_back(std::move(step));
    return plan;
  });
}

}  // namespace orvanta
