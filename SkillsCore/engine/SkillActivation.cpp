#include "engine/SkillActivation.h"

#include <map>
#include <optional>
#include <set>

#include "content/ContentHash.h"
#include "engine/DeploymentIndex.h"
#include "engine/UndeployBatch.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"

namespace orvanta {

using Action = PlannedStep::Action;

void SkillActivation::setEnabled(const std::string& id, bool enabled) {
  const ActivationReport report = setEnabled(std::vector{skills_.require(id).id}, enabled, {});
  if (report.failure) throw SkillsError(*report.failure);
}

ActivationReport SkillActivation::setEnabled(const std::vector<std::string>& ids, bool enabled,
                                             const OperationContext& context) {
  std::vector<SkillRecord> skills;
  for (const auto& id : ids) skills.push_back(skills_.require(id));
  return enabled ? enable(skills, context) : disable(skills, context);
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

ActivationReport SkillActivation::enable(const std::vector<SkillRecord>& skills, const OperationContext& context) {
  std::map<std::string, std::vector<SkillTarget>> targets;
  std::vector<std::string> ids;
  for (const auto& skill : skills) ids.push_back(skill.id);
  library_.store.forEachTarget(ids, [&](SkillTarget&& target) {
    if (target.status == kTargetDisabled) targets[target.skillId].push_back(std::move(target));
  });

  ActivationReport report;
  FolderChanges changes(library_);
  std::vector<Restored> restored;
  for (const auto& skill : skills) {
    report.interrupted = context.stop.stop_requested();
    if (report.interrupted) break;
    try {
      restored.push_back(prepareToRestore(skill, std::move(targets[skill.id])));
    } catch (const SkillsError& error) {
      restored.push_back({.skill = &skill, .changes = {}, .records = {}, .failure = error});
    }
    context.report("Enabling", restored.size(), skills.size());
  }
  makeWhole(changes, restored);
  library_.transaction([&] {
    changes.recorded();
    for (const auto& skill : restored) {
      if (skill.failure) continue;
      recordEnabled(*skill.skill, true);
      for (const auto& record : skill.records) library_.store.upsertTarget(record);
    }
  });
  for (auto& skill : restored) {
    for (auto& change : skill.changes) change.keep();
    if (!skill.failure) {
      report.changedIds.push_back(skill.skill->id);
      continue;
    }
    report.errors.push_back(skill.skill->name + ": " + skill.failure->message());
    if (!report.failure) report.failure = skill.failure;
  }
  return report;
}

// A skill of which a part cannot be placed is not placed at all.
void SkillActivation::makeWhole(FolderChanges& changes, std::vector<Restored>& skills) {
  std::vector<TargetChange*> all;
  std::vector<Restored*> owners;
  for (auto& skill : skills) {
    for (auto& change : skill.changes) {
      all.push_back(&change);
      owners.push_back(&skill);
    }
  }
  changes.make(all, [&](std::size_t i, const SkillsError& error) {
    if (!owners[i]->failure) owners[i]->failure = error;
  });
  for (auto& skill : skills) {
    if (skill.failure) skill.changes.clear();
  }
}

// The places were left to their owner when the skill was disabled, so nothing there is replaced but what is right
// already.
SkillActivation::Restored SkillActivation::prepareToRestore(const SkillRecord& skill,
                                                            std::vector<SkillTarget> targets) {
  if (!FS::resolvesToDirectory(skill.centralPath)) {
    throw SkillsError::notFound("Library directory missing for '" + skill.name + "'");
  }
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex places({}, resolver);
  std::optional<std::string> hash;  // read when the first copy needs it
  std::set<std::string> filled;     // places that agents share are filled once
  Restored restored{.skill = &skill, .changes = {}, .records = {}, .failure = {}};
  for (auto& target : targets) {
    if (filled.insert(places.place(target.targetPath)).second) {
      restored.changes.push_back(
          SyncEngine::prepare(skill.centralPath, target.targetPath, target.mode, ReplacePolicy::noClobber(), resolver));
    }
    if (target.mode == SyncMode::copy) {
      if (!hash) hash = ContentHash::hashDirectory(skill.centralPath);
      target.sourceHash = hash;
    }
    target.status = kTargetOk;
    target.lastError.reset();
    target.syncedAt = nowMillis();
    restored.records.push_back(std::move(target));
  }
  return restored;
}

ActivationReport SkillActivation::disable(const std::vector<SkillRecord>& skills, const OperationContext& context) {
  std::vector<std::string> ids;
  for (const auto& skill : skills) ids.push_back(skill.id);
  std::vector<SkillTarget> targets;
  library_.store.forEachTarget(ids, [&](SkillTarget&& target) { targets.push_back(std::move(target)); });

  ActivationReport report;
  UndeployBatch batch(library_, std::move(targets));
  report.interrupted = context.stop.stop_requested();
  if (report.interrupted) return report;
  batch.takeOut({});
  library_.transaction([&] {
    batch.recorded();
    for (const auto& skill : skills) recordEnabled(skill, false);
    for (const auto& pair : batch.pairs()) {
      SkillTarget record = pair.record;
      record.status = kTargetDisabled;
      // A shared place is cleared with the last of its agents, so only the other reasons are still true at the end.
      record.lastError = pair.isShared ? std::nullopt : pair.note;
      library_.store.upsertTarget(record);
    }
  });
  batch.keep();
  for (const auto& pair : batch.pairs()) {
    if (!pair.failed) continue;
    report.errors.push_back(pair.skillName + " → " + pair.record.tool + ": " + pair.record.targetPath + ": " +
                            pair.note.value_or(""));
  }
  report.changedIds = ids;
  return report;
}

void SkillActivation::recordEnabled(const SkillRecord& skill, bool enabled) {
  library_.store.setSkillEnabled(skill.id, enabled);
  library_.store.logAudit(
      {.action = enabled ? "enable_skill" : "disable_skill", .skillId = skill.id, .skillName = skill.name});
}

}  // namespace orvanta
