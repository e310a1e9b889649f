// Taking skills out of agents' folders, and making the set of agents that hold a skill exact.

#include <algorithm>
#include <iterator>
#include <map>

#include "engine/Deployment.h"
#include "engine/UndeployBatch.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

Placement placementOf(const UndeployBatch::Pair& pair) {
  return {.skillId = pair.record.skillId,
          .skillName = pair.skillName,
          .tool = pair.record.tool,
          .targetPath = pair.record.targetPath,
          .mode = pair.record.mode,
          .changed = pair.cleared,
          .note = pair.note};
}

}  // namespace

Placement Deployment::undeploy(const std::string& skillId, const std::string& tool) {
  const SkillRecord skill = skills_.require(skillId);
  const PlacementReport report = undeploy({skillId}, {tool}, {});
  if (!report.done.empty()) return report.done.front();
  return {.skillId = skillId,
          .skillName = skill.name,
          .tool = tool,
          .targetPath = {},
          .mode = SyncMode::symlink,
          .changed = false,
          .note = "not deployed"};
}

PlacementReport Deployment::undeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                                     const OperationContext& context) {
  UndeployBatch batch(library_, recordsOf(skillIds, tools));
  batch.takeOut(context);
  PlacementReport report;
  library_.transaction([&] {
    const auto active = presets_.activePreset();
    for (const auto& pair : batch.pairs()) {
      if (!pair.done) {
        report.interrupted = true;
        break;
      }
      const SkillTarget& record = pair.record;
      library_.store.deleteTarget(record.skillId, record.tool);
      library_.store.logAudit({.action = "undeploy",
                               .skillId = record.skillId,
                               .skillName = pair.skillName,
                               .tool = record.tool,
                               .detail = pair.note ? std::optional(record.targetPath + " (" + *pair.note + ")")
                                                   : std::optional(record.targetPath)});
      presets_.setActivePresetToggle(active, record.skillId, record.tool, false);
      report.done.push_back(placementOf(pair));
    }
    if (report.interrupted) return;
    // What was not deployed is not wanted from now on either.
    for (const auto& skillId : skillIds) {
      for (const auto& tool : tools) presets_.setActivePresetToggle(active, skillId, tool, false);
    }
  });
  batch.keep();
  return report;
}

Plan Deployment::planUndeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools) {
  return UndeployBatch(library_, recordsOf(skillIds, tools)).plan();
}

void Deployment::setDeployedTools(const std::string& skillId, const std::set<std::string>& tools) {
  skills_.require(skillId);
  std::set<std::string> deployed;
  for (const auto& target : library_.store.targets(skillId)) deployed.insert(target.tool);
  std::vector<std::string> missing;
  std::vector<std::string> surplus;
  std::set_difference(tools.begin(), tools.end(), deployed.begin(), deployed.end(), std::back_inserter(missing));
  std::set_difference(deployed.begin(), deployed.end(), tools.begin(), tools.end(), std::back_inserter(surplus));
  const PlacementReport report = deploy({skillId}, missing, /*force=*/false, {});
  if (!report.errors.empty()) throw SkillsError::refused(Text::join(report.errors, "; "));
  undeploy({skillId}, surplus, {});
}

// The records of these pairs, in the order of the lists.
std::vector<SkillTarget> Deployment::recordsOf(const std::vector<std::string>& skillIds,
                                               const std::vector<std::string>& tools) {
  std::map<std::pair<std::string, std::string>, SkillTarget> byPair;
  library_.store.forEachTarget(skillIds, [&](SkillTarget&& target) {
    byPair.emplace(std::pair(target.skillId, target.tool), std::move(target));
  });
  std::vector<SkillTarget> records;
  for (const auto& skillId : skillIds) {
    for (const auto& tool : tools) {
      const auto record = byPair.find({skillId, tool});
      if (record != byPair.end()) records.push_back(record->second);
    }
  }
  return records;
}

}  // namespace orvanta
