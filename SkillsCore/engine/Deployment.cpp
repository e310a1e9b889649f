#include "engine/Deployment.h"

#include <utility>

#include "engine/DeployBatch.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

std::string failureText(const std::string& skill, const std::string& agent, const SkillsError& error) {
  return skill + " → " + agent + ": " + error.message();
}

Placement placementOf(const DeployBatch::Pair& pair) {
  return {.skillId = pair.skillId,
          .skillName = pair.name(),
          .tool = pair.tool,
          .targetPath = pair.target.string(),
          .mode = pair.mode,
          .changed = pair.action != PlannedStep::Action::keep,
          .note = {}};
}

}  // namespace

Placement Deployment::deploy(const std::string& skillId, const std::string& tool, bool force) {
  skills_.require(skillId);
  DeployBatch batch(library_, {skillId}, {tool}, force);
  batch.place({});
  const DeployBatch::Pair& pair = batch.pairs().front();
  library_.transaction([&] {
    if (pair.done) {
      library_.store.upsertTarget(batch.recordOf(pair));
      presets_.setActivePresetToggle(presets_.activePreset(), skillId, tool, true);
    }
    library_.store.logAudit({.action = "deploy",
                             .skillId = skillId,
                             .skillName = pair.name(),
                             .tool = tool,
                             .success = pair.done,
                             .detail = pair.failure ? std::optional(pair.failure->message()) : std::nullopt});
  });
  if (pair.failure) throw SkillsError(*pair.failure);
  batch.keep();
  return placementOf(pair);
}

PlacementReport Deployment::deploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                                   bool force, const OperationContext& context) {
  DeployBatch batch(library_, skillIds, tools, force);
  batch.place(context);
  PlacementReport report;
  std::vector<std::pair<const DeployBatch::Pair*, std::optional<SkillTarget>>> news;
  for (const auto& pair : batch.pairs()) {
    if (pair.done) {
      SkillTarget record = batch.recordOf(pair);
      if (!batch.isRecorded(pair, record)) news.emplace_back(&pair, std::move(record));
      report.done.push_back(placementOf(pair));
    } else if (pair.failure) {
      news.emplace_back(&pair, std::nullopt);
      report.errors.push_back(failureText(pair.name(), pair.agentName(), *pair.failure));
    } else {
      report.interrupted = true;
    }
  }
  if (news.empty()) return report;
  library_.transaction([&] {
    const auto active = presets_.activePreset();
    for (const auto& [pair, record] : news) {
      if (record) {
        library_.store.upsertTarget(*record);
        presets_.setActivePresetToggle(active, pair->skillId, pair->tool, true);
      }
      library_.store.logAudit({.action = "deploy",
                               .skillId = pair->skillId,
                               .skillName = pair->name(),
                               .tool = pair->tool,
                               .success = pair->done,
                               .detail = pair->failure ? std::optional(pair->failure->message()) : std::nullopt});
    }
  });
  batch.keep();
  return report;
}

Plan Deployment::planDeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                            bool force) {
  return DeployBatch(library_, skillIds, tools, force).plan();
}

}  // namespace orvanta
