// Skills that web sites publish, as the engine offers them: fetched without a turn, like everything on the network.
// Each is copied, or looked at, before the next is fetched: only one at a time takes room beside the library.

#include "engine/SiteInstallation.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

WellKnownIndex SkillsEngine::fetchWellKnown(const std::string& domain, const OperationContext& context) {
  return WellKnownIndex::fetch(HTTPClient(httpSettings(context)), domain, context);
}

InstallReport SkillsEngine::installWellKnown(const WellKnownIndex& index,
                                             const std::vector<WellKnownIndex::Entry>& entries,
                                             const std::optional<std::string>& name, const OperationContext& context) {
  PreparedInstall prepared;
  const SiteInstallation site(HTTPClient(httpSettings(context)), index, state_->user.temp);
  const auto failures = site.forEachSkill(entries, name, context, [&](const InstallRequest& request) {
    Installation::prepareAlso(prepared, state_->paths(), {request},
                              {.stop = context.stop, .progress = {}, .trace = {}});
  });
  const State::ChangeTurn turn(*state_);
  InstallReport report = state_->components.installation.settle(prepared);
  report.errors.insert(report.errors.begin(), failures.errors.begin(), failures.errors.end());
  report.interrupted = report.interrupted || failures.interrupted;
  return report;
}

Plan SkillsEngine::planInstallWellKnown(const WellKnownIndex& index, const std::vector<WellKnownIndex::Entry>& entries,
                                        const std::optional<std::string>& name, const OperationContext& context) {
  Plan plan;
  Installer::Taken taken;
  const SiteInstallation site(HTTPClient(httpSettings(context)), index, state_->user.temp);
  const auto failures = site.forEachSkill(entries, name, context, [&](const InstallRequest& request) {
    const Turn turn(state_->mutex);
    plan.push_back(state_->components.installation.planOne(request, taken));
  });
  for (const auto& error : failures.errors) {
    plan.push_back({.action = PlannedStep::Action::refused, .skillName = {}, .path = index.baseURL, .reason = error});
  }
  return plan;
}

}  // namespace orvanta
