// Taking skills out of agents' folders, and making the set of agents that hold a skill exact.

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "engine/Deployment.h"
#include "engine/Pairs.h"
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
  const PlacementReport report = undeploy({{skillId, tool}}, Asker::hand, {});
  if (!report.done.empty()) return report.done.front();
  return {.skillId = skillId,
          .skillName = skill.name,
          .tool = tool,
          .targetPath = {},
          .mode = SyncMode::symlink,
          .changed = false,
          .note = "not deployed"};
}

PlacementReport Deployment::undeploy(const std::vector<SkillToolPair>& pairs, Asker asker,
                                     const OperationContext& context) {
  UndeployBatch batch(library_, recordsOf(pairs));
  batch.takeOut(context);
  PlacementReport report;
  library_.transaction([&] {
    batch.recorded();
    auto active = presetFollowing(asker);
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
      report.done.push_back(placementOf(pair));
      if (pair.failed) {
        report.errors.push_back(pair.skillName + " → " + record.tool + ": " + record.targetPath + ": " + *pair.note);
      }
    }
    if (!active) return;
    // What was not deployed is not wanted from now on either, but for what a stop left undone.
    std::set<SkillToolPair> undone;
    for (const auto& pair : batch.pairs()) {
      if (!pair.done) undone.insert({pair.record.skillId, pair.record.tool});
    }
    for (const auto& pair : pairs) {
      if (!undone.contains(pair)) active->setActivePresetToggle(pair.skillId, pair.tool, false);
    }
  });
  batch.keep();
  return report;
}

Plan Deployment::planUndeploy(const std::vector<SkillToolPair>& pairs) {
  return UndeployBatch(library_, recordsOf(pairs)).plan();
}

void Deployment::setDeployedTools(const std::string& skillId, const std::set<std::string>& tools) {
  skills_.require(skillId);
  std::set<std::string> deployed;
  for (const auto& target : library_.store.targets(skillId)) deployed.insert(target.tool);
  std::vector<std::string> missing;
  std::vector<std::string> surplus;
  std::set_difference(tools.begin(), tools.end(), deployed.begin(), deployed.end(), std::back_inserter(missing));
  std::set_difference(deployed.begin(), deployed.end(), tools.begin(), tools.end(), std::back_inserter(surplus));
  const PlacementReport report = deploy({.pairs = pairsOf({skillId}, missing)}, Asker::hand, {});
  if (!report.errors.empty()) throw SkillsError::refused(Text::join(report.errors, "; "));
  undeploy(pairsOf({skillId}, surplus), Asker::hand, {});
}

// In the order of the pairs.
std::vector<SkillTarget> Deployment::recordsOf(const std::vector<SkillToolPair>& pairs) {
  std::set<std::string> skillIds;
  for (const auto& pair : pairs) skillIds.insert(pair.skillId);
  std::map<SkillToolPair, SkillTarget> byPair;
  library_.store.forEachTarget({skillIds.begin(), skillIds.end()}, [&](SkillTarget&& target) {
    byPair.emplace(SkillToolPair{target.skillId, target.tool}, std::move(target));
  });
  std::vector<SkillTarget> records;
  for (const auto& pair : pairs) {
    const auto record = byPair.find(pair);
    if (record != byPair.end()) records.push_back(record->second);
  }
  return records;
}

}  // namespace orvanta
