#include "engine/SkillRemoval.h"

#include <map>

#include "engine/FolderRemoval.h"
#include "engine/UndeployBatch.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta {

using Action = PlannedStep::Action;

namespace {

// What was left in agents' folders, by skill.
std::map<std::string, std::string> leftovers(const UndeployBatch& batch) {
  std::map<std::string, std::string> left;
  for (const auto& pair : batch.pairs()) {
    if (pair.cleared || pair.isShared) continue;
    left[pair.record.skillId] += "; " + pair.record.targetPath + " (" + pair.note.value_or("left") + ")";
  }
  return left;
}

}  // namespace

void SkillRemoval::remove(const std::string& id, bool deleteFiles) {
  const SkillRecord skill = skills_.require(id);
  if (deleteFiles) FolderRemoval::requireRemovable(library_.paths.skills(), skill);
  const RemovalReport report = remove(std::vector{id}, deleteFiles, {});
  if (report.removed.empty()) throw SkillsError::io(report.errors.front());
}

RemovalReport SkillRemoval::remove(const std::vector<std::string>& ids, bool deleteFiles,
                                   const OperationContext& context) {
  RemovalReport report;
  std::vector<SkillRecord> gone;
  std::vector<FolderRemoval> folders;
  for (const auto& id : ids) {
    report.interrupted = context.stop.stop_requested();
    if (report.interrupted) break;
    try {
      const SkillRecord skill = skills_.require(id);
      if (deleteFiles) folders.emplace_back(library_.paths.skills(), skill);
      gone.push_back(skill);
    } catch (const SkillsError& error) {
      report.errors.push_back(error.message());
    }
    context.report("Removing", gone.size(), ids.size());
  }
  UndeployBatch batch(library_, targetsOf(gone));
  batch.takeOut({});
  auto left = leftovers(batch);
  if (!folders.empty()) FS::flushFolder(library_.paths.skills());
  library_.transaction([&] {
    batch.recorded();
    for (const auto& skill : gone) {
      library_.store.deleteSkill(skill.id);
      library_.store.logAudit({.action = "remove_skill",
                               .skillId = skill.id,
                               .skillName = skill.name,
                               .detail = (deleteFiles ? "files deleted" : "record only") + left[skill.id]});
      report.removed.push_back(skill.id);
    }
  });
  batch.keep();
  for (auto& folder : folders) folder.keep();
  for (const auto& pair : batch.pairs()) {
    if (!pair.cleared && !pair.isShared) {
      (pair.failed ? report.errors : report.notes)
          .push_back(pair.record.targetPath + " was left in place (" + pair.note.value_or("left") + ")");
    }
  }
  return report;
}

Plan SkillRemoval::plan(const std::vector<std::string>& ids, bool deleteFiles) {
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

std::vector<SkillTarget> SkillRemoval::targetsOf(const std::vector<SkillRecord>& skills) {
  std::vector<std::string> ids;
  for (const auto& skill : skills) ids.push_back(skill.id);
  std::vector<SkillTarget> targets;
  library_.store.forEachTarget(ids, [&](SkillTarget&& target) { targets.push_back(std::move(target)); });
  return targets;
}

}  // namespace orvanta
