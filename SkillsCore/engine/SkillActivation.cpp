#include "engine/SkillActivation.h"

#include <set>

#include "agents/SyncEngine.h"
#include "content/ContentHash.h"
#include "engine/FolderRemoval.h"
#include "engine/UndeployBatch.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"

namespace orvanta {

using Action = PlannedStep::Action;

void SkillActivation::setEnabled(const std::string& id, bool enabled) {
  const SkillRecord skill = skills_.require(id);
  if (enabled) {
    enable(skill);
  } else {
    disable(skill);
  }
}

Plan SkillActivation::planSetEnabled(const std::string& id, bool enabled) {
  const SkillRecord skill = skills_.require(id);
  auto targets = library_.store.targets(id);
  if (!enabled) return UndeployBatch(library_, targets).plan();
  Plan plan;
  SyncEngine::FolderResolver resolver;
  for (const auto& target : targets) {
    if (target.status != kTargetDisabled) continue;
    PlannedStep step{.action = Action::place,
                     .skillName = skill.name,
                     .skillId = id,
                     .tool = target.tool,
                     .path = target.targetPath,
                     .reason = {}};
    try {
      SyncEngine::preflightReplace(skill.centralPath, target.targetPath, target.mode, ReplacePolicy::noClobber(),
                                   resolver);
      if (FS::exists(target.targetPath)) step.action = Action::keep;
    } catch (const SkillsError& error) {
      step.action = Action::refused;
      step.reason = error.message();
    }
    plan.push_back(step);
  }
  return plan;
}

// The places were left to their owner when the skill was disabled, so nothing there is replaced but what is right already.
void SkillActivation::enable(const SkillRecord& skill) {
  if (!FS::resolvesToDirectory(skill.centralPath)) {
    throw SkillsError::notFound("Library directory missing for '" + skill.name + "'");
  }
  SyncEngine::FolderResolver resolver;
  std::vector<TargetChange> changes;
  std::vector<SkillTarget> records;
  std::set<std::string> filled;  // places that agents share are filled once
  for (auto& target : library_.store.targets(skill.id)) {
    if (target.status != kTargetDisabled) continue;
    if (filled.insert(target.targetPath).second) {
      changes.push_back(SyncEngine::place(skill.centralPath, target.targetPath, target.mode,
                                          ReplacePolicy::noClobber(), resolver));
    }
    target.status = kTargetOk;
    target.syncedAt = nowMillis();
    if (target.mode == SyncMode::copy) target.sourceHash = ContentHash::hashDirectory(skill.centralPath);
    records.push_back(std::move(target));
  }
  library_.transaction([&] {
    library_.store.setSkillEnabled(skill.id, true);
    for (const auto& record : records) library_.store.upsertTarget(record);
    library_.store.logAudit({.action = "enable_skill", .skillId = skill.id, .skillName = skill.name});
  });
  for (auto& change : changes) change.keep();
}

void SkillActivation::disable(const SkillRecord& skill) {
  UndeployBatch batch(library_, library_.store.targets(skill.id));
  batch.takeOut({});
  library_.transaction([&] {
    library_.store.setSkillEnabled(skill.id, false);
    for (const auto& pair : batch.pairs()) {
      SkillTarget record = pair.record;
      record.status = kTargetDisabled;
      record.lastError = pair.note;
      library_.store.upsertTarget(record);
    }
    library_.store.logAudit({.action = "disable_skill", .skillId = skill.id, .skillName = skill.name});
  });
  batch.keep();
}

void SkillActivation::remove(const std::string& id, bool deleteFiles) {
  const SkillRecord skill = skills_.require(id);
  if (deleteFiles) FolderRemoval::requireRemovable(library_.paths.skills(), skill);
  const RemovalReport report = remove(std::vector{id}, deleteFiles, {});
  if (!report.errors.empty()) throw SkillsError::io(report.errors.front());
}

RemovalReport SkillActivation::remove(const std::vector<std::string>& ids, bool deleteFiles,
                                      const OperationContext& context) {
  RemovalReport report;
  std::vector<SkillRecord> gone;
  std::vector<FolderRemoval> folders;
  for (const auto& id : ids) {
    if (context.stop.stop_requested()) {
      report.interrupted = true;
      break;
    }
    try {
      const SkillRecord skill = skills_.require(id);
      if (deleteFiles) folders.emplace_back(library_.paths.skills(), skill);
      gone.push_back(skill);
    } catch (const SkillsError& error) {
      report.errors.push_back(error.message());
    }
    context.report("Removing", gone.size(), ids.size());
  }
  std::vector<SkillTarget> targets;
  for (const auto& skill : gone) {
    for (auto& target : library_.store.targets(skill.id)) targets.push_back(std::move(target));
  }
  UndeployBatch batch(library_, std::move(targets));
  batch.takeOut({});
  library_.transaction([&] {
    for (const auto& skill : gone) {
      library_.store.deleteSkill(skill.id);
      library_.store.logAudit({.action = "remove_skill",
                               .skillId = skill.id,
                               .skillName = skill.name,
                               .detail = deleteFiles ? "files deleted" : "record only"});
      report.removed.push_back(skill.id);
    }
  });
  batch.keep();
  for (auto& folder : folders) folder.keep();
  return report;
}

Plan SkillActivation::planRemove(const std::vector<std::string>& ids, bool deleteFiles) {
  Plan plan;
  for (const auto& id : ids) {
    const SkillRecord skill = skills_.require(id);
    Plan deployments = UndeployBatch(library_, library_.store.targets(id)).plan();
    plan.insert(plan.end(), deployments.begin(), deployments.end());
    plan.push_back({.action = deleteFiles ? Action::remove : Action::keep,
                    .skillName = skill.name,
                    .skillId = id,
                    .tool = {},
                    .path = skill.centralPath,
                    .reason = deleteFiles ? std::nullopt : std::optional<std::string>("only the record goes")});
  }
  return plan;
}

}  // namespace orvanta
