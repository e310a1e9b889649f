#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "foundations/SkillsError.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> skills;
  bool dryRun = false;
};

struct Outcome {
  std::vector<SkillSummary> done;
  std::vector<std::string> errors;
  bool interrupted = false;
};

Plan planOf(SkillsEngine& engine, const std::vector<SkillRecord>& records, bool enabled) {
  Plan plan;
  for (const SkillRecord& record : records) {
    const Plan steps = engine.planSetSkillEnabled(record.id, enabled);
    plan.insert(plan.end(), steps.begin(), steps.end());
  }
  return plan;
}

Outcome setEnabled(SkillsEngine& engine, const std::vector<SkillRecord>& records, bool enabled,
                   const OperationContext& context) {
  Outcome outcome;
  for (const SkillRecord& record : records) {
    outcome.interrupted = context.stop.stop_requested();
    if (outcome.interrupted) break;
    context.report(enabled ? "Enabling" : "Disabling", outcome.done.size(), records.size());
    try {
      outcome.done.push_back(engine.setSkillEnabled(record.id, enabled));
    } catch (const SkillsError& error) {
      outcome.errors.push_back(fmt::format("{}: {}", record.name, error.message()));
    }
  }
  return outcome;
}

ExitStatus run(Session& session, const Options& options, bool enabled) {
  const auto records = skillsNamed(session.engine(), options.skills);
  if (options.dryRun) return showPlan(session, planOf(session.engine(), records, enabled));
  const Outcome outcome = session.change(
      [&](const OperationContext& context) { return setEnabled(session.engine(), records, enabled, context); });
  if (session.json()) {
    writeJsonArray(session.out().stream(), outcome.done);
  } else {
    session.out().line(fmt::format("{} {}.", counted(outcome.done.size(), "skill"), enabled ? "enabled" : "disabled"));
  }
  showProblemsBesideArray(session, outcome.errors, outcome.interrupted);
  return bulkStatus(outcome.done.size(), outcome.errors.size(), outcome.interrupted);
}

ExitStatus enable(Session& session, const Options& options) { return run(session, options, true); }

ExitStatus disable(Session& session, const Options& options) { return run(session, options, false); }

}  // namespace

void setUpEnable(CommandLine& line) {
  Options& options = line.runs<Options>(enable);
  skillArguments(line, options.skills);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta enable pdf", "Put it back where it was deployed");
}

void setUpDisable(CommandLine& line) {
  Options& options = line.runs<Options>(disable);
  skillArguments(line, options.skills);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta disable pdf", "Take it out of every agent's folder; the library remembers where it was");
}

}  // namespace orvanta::cli
