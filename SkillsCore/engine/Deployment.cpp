#include "engine/Deployment.h"

#include <utility>

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
  DeployBatch batch(library_, {.pairs = {{skillId, tool}}, .force = force});
  batch.place({});
  const DeployBatch::Pair& pair = batch.pairs().front();
  if (pair.failure) {
    record(pair);
    throw SkillsError(*pair.failure);
  }
  library_.transaction([&] {
    record(pair);
    batch.recorded();
    ActivePreset(library_).setActivePresetToggle(skillId, tool, true);
  });
  batch.keep();
  return placementOf(pair);
}

PlacementReport Deployment::deploy(DeployRequest request, Asker asker, const OperationContext& context) {
  DeployBatch batch(library_, std::move(request));
  batch.place(context);
  PlacementReport report;
  std::vector<const DeployBatch::Pair*> news;  // what the records do not say yet
  for (const auto& pair : batch.pairs()) {
    if (pair.done) {
      if (DeployBatch::isRecorded(pair)) {
        ++report.untouched;
      } else {
        news.push_back(&pair);
      }
      report.done.push_back(placementOf(pair));
      if (pair.oldFailure) report.errors.push_back(failureText(pair.name(), pair.agentName(), *pair.oldFailure));
    } else if (pair.failure) {
      news.push_back(&pair);
      report.errors.push_back(failureText(pair.name(), pair.agentName(), *pair.failure));
    } else {
      report.interrupted = true;
    }
  }
  if (news.empty() && asker != Asker::hand) return report;
  library_.transaction([&] {
    for (const auto* pair : news) record(*pair);
    batch.recorded();
    auto active = presetFollowing(asker);
    if (!active) return;
    for (const auto& pair : batch.pairs()) {
      if (pair.done) active->setActivePresetToggle(pair.skillId, pair.tool, true);
    }
  });
  batch.keep();
  return report;
}

void Deployment::record(const DeployBatch::Pair& pair) {
  if (pair.done) library_.store.upsertTarget(DeployBatch::recordOf(pair));
  library_.store.logAudit({.action = "deploy",
                           .skillId = pair.skillId,
                           .skillName = pair.name(),
                           .tool = pair.tool,
                           .success = pair.done,
                           .detail = pair.failure ? std::optional(pair.failure->message()) : std::nullopt});
}

Plan Deployment::planDeploy(DeployRequest request) { return DeployBatch(library_, std::move(request)).plan(); }

std::optional<ActivePreset> Deployment::presetFollowing(Asker asker) {
  return asker == Asker::hand ? std::optional<ActivePreset>(std::in_place, library_) : std::nullopt;
}

}  // namespace orvanta
