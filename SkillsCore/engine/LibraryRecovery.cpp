#include "engine/LibraryRecovery.h"

#include <algorithm>
#include <array>
#include <string>

#include "content/ContentHash.h"
#include "content/TreeTransfer.h"
#include "engine/FolderChanges.h"
#include "engine/Repair.h"
#include "engine/Skills.h"
#include "files/FS.h"
#include "files/LibraryLock.h"
#include "files/LockedFolder.h"
#include "files/TemporaryFolder.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"
#include "platform/AtomicRename.h"
#include "sources/StagingFolder.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// "NAME" of "PREFIX NAME-SUFFIX": the suffix has no hyphen.
std::string setAsideName(const std::string& name, std::string_view prefix) {
  const std::string rest = name.substr(prefix.size());
  return rest.substr(0, rest.rfind('-'));
}

// One of two contents that were to change places. What has the skill's place counts; it may be the new one, of which
// the record and the copies in agents' folders do not know yet.
void healReplaced(Library& library, const fs::path& leftover) {
  const fs::path original = leftover.parent_path() / setAsideName(leftover.filename().string(), kReplacingPrefix);
  if (!FS::exists(original)) return FS::renameExclusive(leftover, original);
  auto record = library.store.skillAtPath(comparablePath(original));
  if (record && record->contentHash != ContentHash::hashDirectory(original)) {
    record = Skills(library).refreshRecordFromDisk(*record, Skills::metadataBefore(*record, leftover));
  }
  if (record) Repair(library).resyncCopyTargets(*record);
  FS::removeAny(leftover);
}

// Set aside to be removed: final once the record is gone. What somebody has put in its place stays beside it.
void healRemoved(Library& library, const fs::path& leftover) {
  const fs::path original = leftover.parent_path() / setAsideName(leftover.filename().string(), kRemovingPrefix);
  if (!library.store.skillAtPath(comparablePath(original))) return FS::removeAny(leftover);
  FS::renameExclusive(
      leftover, FS::exists(original) ? fs::path(original.string() + "-before-" + newUuid().substr(0, 8)) : original);
}

// Skills that had taken their places when the process was killed before it wrote their records are taken back: they
// stay where they were installed from, and a folder without a record is nobody's.
void healInstalling(Library& library, const fs::path& leftover) {
  for (const auto& announced : StagingFolder::announced(leftover)) {
    const fs::path folder = library.paths.skills() / announced.name;
    const bool isRecorded = library.store.skillAtPath(comparablePath(folder)).has_value();
    const bool isUntouched = FS::isKnownAs(folder, announced.identity) && measureTree(folder).stamp == announced.stamp;
    if (!isRecorded && isUntouched) FS::removeAny(folder);
  }
  FS::removeAny(leftover);
}

// Nobody checks or updates any more what a killed process left marked so.
void healUpdating(Library& library, const fs::path& leftover) {
  library.store.resetUnfinishedUpdates();
  FS::removeAny(leftover);
}

// Of a library that was being restored from its remote: nothing of it had taken a place.
void removeAbandonedClones(const fs::path& folder) {
  for (const auto& name : FS::childNames(folder)) {
    if (!name.starts_with(StagingFolder::kPrefix)) continue;
    if (const auto lock = lockOfAbandoned(folder / name)) FS::removeQuietly(folder / name);
  }
}

// Whether one of the names that we give. Somebody else's may begin like it.
bool isLeftover(std::string_view name) {
  constexpr std::size_t kSuffix = 6;
  if (name.ends_with(kExchangeSuffix)) name.remove_suffix(std::string_view(kExchangeSuffix).size());
  for (const auto prefix : {kReplacingPrefix, kRemovingPrefix}) {
    if (!name.starts_with(prefix) || name.size() < prefix.size() + kSuffix + 2) continue;
    const auto suffix = name.substr(name.size() - kSuffix);
    const bool isHexadecimal = suffix.find_first_not_of("0123456789abcdef") == std::string_view::npos;
    return isHexadecimal && name[name.size() - kSuffix - 1] == '-';
  }
  for (const auto prefix : {StagingFolder::kPrefix, kUpdatingPrefix}) {
    if (name.starts_with(prefix)) return isUuid(name.substr(prefix.size()));
  }
  return false;
}

void heal(Library& library, const fs::path& leftover) {
  const std::string name = leftover.filename().string();
  if (name.starts_with(kReplacingPrefix) && name.ends_with(kExchangeSuffix)) {
    const fs::path aside =
        leftover.string().substr(0, leftover.string().size() - std::string_view(kExchangeSuffix).size());
    FS::settleExchange(aside, leftover.parent_path() / setAsideName(aside.filename().string(), kReplacingPrefix));
    return healReplaced(library, aside);
  }
  if (name.starts_with(kReplacingPrefix)) return healReplaced(library, leftover);
  if (name.starts_with(kRemovingPrefix)) return healRemoved(library, leftover);
  const auto lock = lockOfAbandoned(leftover);
  if (!lock) return;
  name.starts_with(kUpdatingPrefix) ? healUpdating(library, leftover) : healInstalling(library, leftover);
}

}  // namespace

bool isSetAside(std::string_view name) {
  constexpr std::array kPrefixes{StagingFolder::kPrefix, kReplacingPrefix, kRemovingPrefix, kUpdatingPrefix};
  return std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [&](std::string_view prefix) { return name.starts_with(prefix); });
}

void healLibrary(Library& library) {
  std::vector<fs::path> leftovers;
  bool hasStages = false;
  for (const auto& name : FS::childNames(library.paths.skills())) {
    if (isLeftover(name)) leftovers.push_back(library.paths.skills() / name);
    hasStages = hasStages || isStageName(name);
  }
  if (hasStages) sweepStages(library.paths.skills());
  removeAbandonedTempDirs(library.user.temp);
  removeAbandonedClones(library.paths.repoCache());
  if (leftovers.empty() && !FS::exists(library.paths.changeJournal())) return;
  const auto lock = LibraryLock::tryAcquire(library.paths.lock());
  if (!lock) return;
  try {
    healFolderChanges(library);
  } catch (const SkillsError&) {
    return;
  }
  for (const auto& leftover : leftovers) {
    try {
      heal(library, leftover);
    } catch (const SkillsError&) {
      continue;
    }
  }
}

}  // namespace orvanta
