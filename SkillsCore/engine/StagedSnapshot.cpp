#include "engine/StagedSnapshot.h"

#include <system_error>

#include <fmt/format.h>

#include "content/TreeTransfer.h"
#include "files/TreeCopy.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// A text that differs as soon as something there is written, added or removed.
std::string stampOf(const fs::path& path, FS::Kind kind) {
  if (kind == FS::Kind::directory) return measureTree(path).stamp;
  const FS::Identity identity = FS::identity(path);
  return fmt::format("{} {}", identity.inode, identity.modifiedNs);
}

void copy(const fs::path& from, const fs::path& to, FS::Kind kind) {
  std::error_code failure;
  if (kind == FS::Kind::file || kind == FS::Kind::symlink) {
    fs::copy(from, to, fs::copy_options::copy_symlinks, failure);
  } else if (kind == FS::Kind::directory) {
    FS::copyWholeTree(from, to);
    fs::permissions(to, fs::perms::owner_write, fs::perm_options::add, failure);  // else it could not be moved
  }
  if (failure) throw SkillsError::system("Cannot copy " + from.string(), failure.value());
}

}  // namespace

StagedSnapshot::StagedSnapshot(const GitBackup& backup, const std::string& from, const std::string& to,
                               const OperationContext& context)
    : root_(backup.root()), staging_(root_) {
  FS::createDirectories(staging_.slot(0));
  for (const auto& name : backup.changedFolders(from, to, context)) {
    items_.push_back({.name = name, .kind = FS::kind(root_ / name), .stamp = {}});
  }
  parallelFor(items_.size(), [&](std::size_t i) {
    items_[i].stamp = stampOf(root_ / items_[i].name, items_[i].kind);
    copy(root_ / items_[i].name, staged(items_[i]), items_[i].kind);
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
  for (std::size_t i = 0; i < items_.size(); ++i) {
    const Item& item = items_[i];
    if (item.kind == FS::Kind::absent || stampOf(changes[i].note().stage, item.kind) == item.stamp) continue;
    throw SkillsError::conflict(fmt::format("{} was edited meanwhile. Nothing was changed; try again.",
                                            Text::repairUTF8((root_ / item.name).string())));
  }
}

}  // namespace orvanta
