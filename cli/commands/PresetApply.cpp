#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "cli/commands/Presets.h"

namespace orvanta::cli {

namespace {

struct ApplyOptions {
  std::string preset;
  bool exclusive = false;
  bool dryRun = false;
};

struct DeactivateOptions {
  std::string preset;
  bool dryRun = false;
};

void confirmTakingOut(Session& session, const Preset& preset, const Plan& plan) {
  // What moves to another folder is removed from the old one, and wanted all the same.
  std::set<SkillToolPair> wanted;
  for (const PlannedStep& step : plan) {
    if (step.action != PlannedStep::Action::remove) wanted.insert({step.skillId.value_or(""), step.tool.value_or("")});
  }
  const auto isRemoval = [&](const PlannedStep& step) {
    return step.action == PlannedStep::Action::remove &&
           !wanted.contains({step.skillId.value_or(""), step.tool.value_or("")});
  };
  const auto removals = static_cast<std::size_t>(std::count_if(plan.begin(), plan.end(), isRemoval));
  if (removals == 0) return;
  if (session.willAsk()) showLosses(session, plan);
  session.confirm(
      fmt::format("Take out {} that {} does not want?", counted(removals, "deployment"), inQuotes(preset.name)));
}

// A stop can come before the preset becomes the active one, or ceases to be it.
std::string stateAfter(SkillsEngine& engine, const Preset& preset) {
  return fmt::format("{} is {}: ", inQuotes(preset.name),
                     engine.activePresetId() == preset.id ? "active" : "not active");
}

ExitStatus apply(Session& session, const ApplyOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  if (options.dryRun) return showPlan(session, engine.planApplyPreset(preset.id, options.exclusive));
  if (options.exclusive && !session.options().yes) {
    confirmTakingOut(session, preset, engine.planApplyPreset(preset.id, true));
  }
  const ApplyReport report = session.change(
      [&](const OperationContext& context) { return engine.applyPreset(preset.id, options.exclusive, context); });
  return showReport(session, report, stateAfter(engine, preset) + figuresOf(report));
}

ExitStatus deactivate(Session& session, const DeactivateOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  if (options.dryRun) return showPlan(session, engine.planDeactivatePreset(preset.id));
  const ApplyReport report =
      session.change([&](const OperationContext& context) { return engine.deactivatePreset(preset.id, context); });
  return showReport(session, report, stateAfter(engine, preset) + figuresOf(report));
}

}  // namespace

void setUpPresetApply(CommandLine& line) {
  ApplyOptions& options = line.runs<ApplyOptions>(apply);
  presetArgument(line, options.preset);
  line.flag("--exclusive", options.exclusive, "First take out every deployment outside the preset, after asking");
  line.dryRunFlag(options.dryRun);
  line.example("orvanta preset apply review", "Deploy everything it wants");
  line.example("orvanta preset apply review --exclusive", "And nothing else");
  line.explain(
      "The preset becomes the active one: from then on, deploying and undeploying its skills by hand changes what it "
      "wants. A folder of your own is never replaced; it is reported, and the rest goes on.");
}

void setUpPresetDeactivate(CommandLine& line) {
  DeactivateOptions& options = line.runs<DeactivateOptions>(deactivate);
  presetArgument(line, options.preset);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta preset deactivate review", "Take what it wants out of agents' folders");
  line.explain("The skills stay in the library, and the preset can be applied again.");
}

}  // namespace orvanta::cli
