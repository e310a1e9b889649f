#include "engine/Repair.h"

#include <map>
#include <mutex>
#include <set>
#include <unordered_map>

#include "content/ContentHash.h"
#include "engine/DeploymentIndex.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

// The fingerprints of the skills that some agent holds as a copy, by skill.
std::map<std::string, std::optional<std::string>> hashesOfCopied(const std::map<std::string, SkillRecord>& skills,
                                                                 const std::vector<SkillTarget>& targets) {
  std::set<std::string> copied;
  for (const auto& target : targets) {
    if (target.mode == SyncMode::copy && target.status != kTargetDisabled) copied.insert(target.skillId);
  }
  std::vector<std::string> ids;
  std::vector<fs::path> folders;
  for (const auto& id : copied) {
    const auto skill = skills.find(id);
    if (skill == skills.end()) continue;
    ids.push_back(id);
    folders.emplace_back(skill->second.centralPath);
  }
  auto hashes = ContentHash::hashDirectories(folders);
  std::map<std::string, std::optional<std::string>> byId;
  for (std::size_t i = 0; i < ids.size(); ++i) byId.emplace(ids[i], std::move(hashes[i]));
  return byId;
}

constexpr const char* kRepositoryAdvice = "Move the repository away, and try again.";

bool holds(const fs::path& copy, const std::string& hash) {
  return FS::isDirectory(copy) && ContentHash::hashDirectories({copy}).front() == hash;
}

}  // namespace

ApplyReport Repair::repairDeployments(const OperationContext& context) {
  FolderChanges changes(library_);
  auto all = items();

  // Records that share a place are mended one after the other.
  std::unordered_map<std::string, std::vector<Item*>> groups;
  for (auto& item : all) groups[item.place].push_back(&item);
  std::vector<std::vector<Item*>*> work;
  for (auto& [place, group] : groups) work.push_back(&group);
  std::mutex progress;
  std::size_t finished = 0;
  parallelFor(work.size(), [&](std::size_t i) {
    if (context.stop.stop_requested()) return;
    const Item* mended = nullptr;
    for (Item* item : *work[i]) {
      prepare(*item, mended);
      if (item->repaired) mended = item;
    }
    const std::lock_guard lock(progress);
    context.report("Repairing", finished += work[i]->size(), all.size());
  });

  makeAll(changes, all);
  ApplyReport report;
  library_.transaction([&] {
    changes.recorded();
    for (const auto& orphan : orphans_) library_.store.deleteTarget(orphan.skillId, orphan.tool);
    report.removed = static_cast<std::int64_t>(orphans_.size());
    for (auto& item : all) {
      record(item);
      if (item.repaired) ++report.deployed;
      if (item.intact) ++report.skipped;
      if (item.failure) report.errors.push_back(item.skill->name + " → " + item.record.tool + ": " + *item.failure);
    }
  });
  for (auto& item : all) item.change.keep();
  return report;
}

Plan Repair::plan() {
  Plan plan;
  for (const auto& item : items()) {
    PlannedStep step{.action = Action::refused,
                     .skillName = item.skill->name,
                     .skillId = item.skill->id,
                     .tool = item.record.tool,
                     .path = item.record.targetPath,
                     .reason = {}};
    try {
      step.action = examine(item);
    } catch (const SkillsError& error) {
      step.reason = error.message();
    }
    plan.push_back(step);
  }
  return plan;
}

void Repair::resyncCopyTargets(const SkillRecord& skill) {
  resolver_.emplace();
  const std::string hash = ContentHash::hashDirectory(skill.centralPath);
  auto targets = staleCopies(skill, hash);
  FolderChanges folderChanges(library_);
  std::vector<TargetChange> changes(targets.size());
  std::vector<TargetChange*> prepared;
  std::vector<std::optional<std::string>> failures(targets.size());
  const DeploymentIndex places({}, *resolver_);
  std::map<std::string, std::size_t> first;  // agents that share a place share one copy
  std::vector<std::size_t> copyOf(targets.size());
  for (std::size_t i = 0; i < targets.size(); ++i) {
    prepared.push_back(&changes[i]);
    copyOf[i] = first.emplace(places.place(targets[i].targetPath), i).first->second;
    if (copyOf[i] != i) continue;
    try {
      // What a push came from has the content already.
      if (!holds(targets[i].targetPath, hash)) changes[i] = prepareCopy(skill, targets[i]);
    } catch (const SkillsError& error) {
      failures[i] = error.message();
    }
  }
  try {
    folderChanges.make(prepared, [&](std::size_t i, const SkillsError& error) { failures[i] = error.message(); });
  } catch (const SkillsError& error) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      if (changes[i].isNone()) continue;
      changes[i] = TargetChange();
      failures[i] = error.message();
    }
  }
  library_.transaction([&] {
    folderChanges.recorded();
    for (std::size_t i = 0; i < targets.size(); ++i) recordCopy(targets[i], hash, failures[copyOf[i]]);
  });
  for (auto& change : changes) change.keep();
}

void Repair::recordCopy(SkillTarget& target, const std::string& hash, const std::optional<std::string>& failure) {
  target.lastError = failure;
  target.status = failure ? kTargetError : kTargetOk;
  if (!failure) {
    target.syncedAt = nowMillis();
    target.sourceHash = hash;
  }
  library_.store.upsertTarget(target);
}

std::vector<SkillTarget> Repair::staleCopies(const SkillRecord& skill, const std::optional<std::string>& hash) {
  auto targets = library_.store.targets(skill.id);
  std::erase_if(targets, [&](const SkillTarget& target) {
    if (target.mode != SyncMode::copy || target.status == kTargetDisabled) return true;
    return target.status == kTargetOk && isCurrent(skill.centralPath, target, hash);
  });
  return targets;
}

TargetChange Repair::prepareCopy(const SkillRecord& skill, const SkillTarget& target) {
  if (FS::isDirectory(target.targetPath)) refuseRepository(target.targetPath, kRepositoryAdvice);
  return SyncEngine::prepare(skill.centralPath, target.targetPath, SyncMode::copy,
                             ReplacePolicy::recorded(SyncMode::copy), *resolver_);
}

bool Repair::isCurrent(const fs::path& source, const SkillTarget& record,
                       const std::optional<std::string>& currentHash) {
  return SyncEngine::isTargetCurrent(source, record.targetPath, record.mode, record.sourceHash, currentHash) &&
         SyncEngine::matchesRecordedDeployment(record.targetPath, record.mode);
}

std::vector<Repair::Item> Repair::items() {
  resolver_.emplace();
  skills_.clear();
  orphans_.clear();
  for (const auto& skill : library_.store.allSkills()) skills_.emplace(skill.id, skill);
  auto targets = library_.store.allTargets();
  const auto hashes = hashesOfCopied(skills_, targets);
  const DeploymentIndex places({}, *resolver_);
  std::vector<Item> items;
  for (auto& target : targets) {
    const auto skill = skills_.find(target.skillId);
    if (skill == skills_.end()) {
      orphans_.push_back(std::move(target));
      continue;
    }
    if (target.status == kTargetDisabled) continue;
    Item item;
    item.skill = &skill->second;
    item.place = places.place(target.targetPath);
    const auto hash = hashes.find(target.skillId);
    if (hash != hashes.end()) item.currentHash = hash->second;
    item.record = std::move(target);
    items.push_back(std::move(item));
  }
  return items;
}

// Throws what refuses the repair.
Action Repair::examine(const Item& item) {
  const SkillTarget& record = item.record;
  const fs::path source = item.skill->centralPath;
  if (!FS::resolvesToDirectory(source)) {
    throw SkillsError::notFound("Library directory missing for '" + item.skill->name + "'");
  }
  if (isCurrent(source, record, item.currentHash)) return Action::keep;
  SyncEngine::preflightReplace(source, record.targetPath, record.mode, ReplacePolicy::recorded(record.mode),
                               *resolver_);
  if (FS::isDirectory(record.targetPath)) refuseRepository(record.targetPath, kRepositoryAdvice);
  return FS::exists(record.targetPath) ? Action::replace : Action::place;
}

// `sharing` is another record of this place that is to be mended.
void Repair::prepare(Item& item, const Item* sharing) {
  if (sharing != nullptr && sharing->skill == item.skill && sharing->record.mode == item.record.mode) {
    item.sharing = sharing;
    item.repaired = true;
    return;
  }
  try {
    item.intact = examine(item) == Action::keep;
    if (item.intact) return;
    item.change = SyncEngine::prepare(item.skill->centralPath, item.record.targetPath, item.record.mode,
                                      ReplacePolicy::recorded(item.record.mode), *resolver_);
    item.repaired = true;
  } catch (const SkillsError& error) {
    item.failure = error.message();
  }
}

void Repair::makeAll(FolderChanges& changes, std::vector<Item>& items) {
  changes.makeEach(items, [](Item& item, const SkillsError& error) { item.failure = error.message(); });
  for (auto& item : items) {
    if (item.sharing != nullptr) item.failure = item.sharing->failure;
    item.repaired = item.repaired && !item.failure;
  }
}

void Repair::record(Item& item) {
  SkillTarget& target = item.record;
  if (item.failure) {
    target.status = kTargetError;
    target.lastError = item.failure;
  } else if (item.repaired) {
    target.status = kTargetOk;
    target.lastError.reset();
    target.syncedAt = nowMillis();
    target.sourceHash = target.mode == SyncMode::copy ? item.currentHash : item.skill->contentHash;
  } else if (item.intact && target.status != kTargetOk) {
    target.status = kTargetOk;
    target.lastError.reset();
  } else {
    return;
  }
  library_.store.upsertTarget(target);
  library_.store.logAudit({.action = "deploy",
                           .skillId = target.skillId,
                           .skillName = item.skill->name,
                           .tool = target.tool,
                           .success = !item.failure,
                           .detail = item.failure ? *item.failure : "repaired"});
}

}  // namespace orvanta
