// Sources on the network, as the engine offers them. No turn is held while one is waited for: what is needed of the
// library is read in one turn, copies are made in folders that nobody else looks into, and the result is recorded in a
// second turn, which looks again at what the library holds.

#include "engine/GitInstallation.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

GitPreview SkillsEngine::previewGit(const std::string& url, const OperationContext& context) {
  const auto known = skills();
  return GitInstallation(gitSettings(context), url).preview(known, context);
}

InstallReport SkillsEngine::installGit(const std::string& url, const GitChoice& choice,
                                       const OperationContext& context) {
  PreparedInstall prepared;
  std::vector<std::string> errors;
  GitInstallation(gitSettings(context), url).withSkills(choice, context, [&](GitInstallation::Found found) {
    prepared = Installation::prepare(state_->paths(), std::move(found.requests), context);
    errors = std::move(found.errors);
  });
  const State::ChangeTurn turn(*state_);
  InstallReport report = state_->components.installation.settle(prepared);
  report.errors.insert(report.errors.begin(), errors.begin(), errors.end());
  return report;
}

Plan SkillsEngine::planInstallGit(const std::string& url, const GitChoice& choice, const OperationContext& context) {
  Plan plan;
  GitInstallation(gitSettings(context), url).withSkills(choice, context, [&](const GitInstallation::Found& found) {
    const Turn turn(state_->mutex);
    plan = state_->components.installation.plan(found.requests);
    for (const auto& error : found.errors) {
      plan.push_back({.action = PlannedStep::Action::refused, .skillName = {}, .path = url, .reason = error});
    }
  });
  return plan;
}

}  // namespace orvanta
