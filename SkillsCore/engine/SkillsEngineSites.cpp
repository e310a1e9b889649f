// Skills that web sites publish, as the engine offers them: fetched without a turn, like everything on the network.

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
  std::vector<std::string> errors;
  bool interrupted = false;
  const HTTPClient client(httpSettings(context));
  SiteInstallation::withSkills(client, index, entries, name, state_->user.temp, context,
                               [&](SiteInstallation::Found found) {
                                 prepared = Installation::prepare(state_->paths, std::move(found.requests), context);
                                 errors = std::move(found.errors);
                                 interrupted = found.interrupted;
                               });
  const State::ChangeTurn turn(*state_);
  InstallReport report = state_->components.installation.settle(prepared);
  report.errors.insert(report.errors.begin(), errors.begin(), errors.end());
  report.interrupted = report.interrupted || interrupted;
  return report;
}

Plan SkillsEngine::planInstallWellKnown(const WellKnownIndex& index, const std::vector<WellKnownIndex::Entry>& entries,
                                        const std::optional<std::string>& name, const OperationContext& context) {
  Plan plan;
  const HTTPClient client(httpSettings(context));
  SiteInstallation::withSkills(
      client, index, entries, name, state_->user.temp, context, [&](const SiteInstallation::Found& found) {
        const Turn turn(state_->mutex);
        plan = state_->components.installation.plan(found.requests);
        for (const auto& error : found.errors) {
          plan.push_back(
              {.action = PlannedStep::Action::refused, .skillName = {}, .path = index.baseURL, .reason = error});
        }
      });
  return plan;
}

}  // namespace orvanta
