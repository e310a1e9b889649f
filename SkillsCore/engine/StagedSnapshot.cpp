#include "engine/StagedSnapshot.h"

#include <fmt/format.h>

#include "content/ContentHash.h"
#include "files/TreeCopy.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

StagedSnapshot::StagedSnapshot(const GitBackup& backup, const std::string& from, const std::string& to,
                               const OperationContext& context)
    : root_(backup.root()), staging_(root_) {
  FS::createDirectories(staging_.slot(0));
  for (const auto& name : backup.changedFolders(from, to, context)) {
    items_.push_back({.name = name, .kind = FS::kind(root_ / name), .hash = {}});
  }
  parallelFor(items_.size(), [&](std::size_t i) {
    Item& item = items_[i];
    if (item.kind != FS::Kind::directory) return;
    item.hash = ContentHash::hashDirectory(root_ / item.name);
    FS::copyWholeTree(root_ / item.name, staged(item));
    fs::permissions(staged(item), fs::perms::owner_write, fs::perm_options::add);  // else it could not be moved
  });
  backup.bringChanges(staging_.slot(0), from, to, context);
}

std::vector<TargetChange> StagedSnapshot::changes() {
  std::vector<TargetChange> changes;
  changes.reserve(items_.size());
  for (const auto& item : items_) changes.push_back(changeOf(item));
  return changes;
}

TargetChange StagedSnapshot::changeOf(const Item& item) const {
  const fs::path place = root_ / item.name;
  if (FS::exists(staged(item))) return TargetChange::move(staged(item), place, item.kind);
  return item.kind == FS::Kind::absent ? TargetChange() : TargetChange::removal(place, item.kind);
}

void StagedSnapshot::requireUntouched(const std::vector<TargetChange>& changes) const {
  parallelFor(items_.size(), [&](std::size_t i) {
    if (!items_[i].hash || ContentHash::hashDirectory(changes[i].note().stage) == items_[i].hash) return;
    throw SkillsError::conflict(fmt::format("{} was edited meanwhile. Nothing was changed; try again.",
                                            Text::repairUTF8((root_ / items_[i].name).string())));
  });
}

}  // namespace orvanta
