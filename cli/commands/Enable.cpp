#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> skills;
  bool dryRun = false;
};

Plan planOf(SkillsEngine& engine, const std::vector<SkillRecord>& records, bool enabled) {
  Plan plan;
  for (const SkillRecord& record : records) {
    const Plan steps = engine.planSetSkillEnabled(record.id, enabled);
    plan.insert(plan.end(), steps.begin(), steps.end());
  }
  return plan;
}

void writeSummaries(Session& session, const std::vector<std::string>& ids) {
  auto records = session.engine().skills();
  const std::set<std::string> wanted(ids.begin(), ids.end());
  const auto isOther = [&](const SkillRecord& record) { return wanted.count(record.id) == 0; };
  records.erase(std::remove_if(records.begin(), records.end(), isOther), records.end());
  writeJsonArray(session.out().stream(), session.engine().summaries(records));
}

ExitStatus run(Session& session, const Options& options, bool enabled) {
  const auto records = skillsNamed(session.engine(), options.skills);
  if (options.dryRun) return showPlan(session, planOf(session.engine(), records, enabled));
  const ActivationReport report = session.change([&](const OperationContext& context) {
    return session.engine().setSkillsEnabled(idsOf(records), enabled, context);
  });
  if (session.json()) {
    writeSummaries(session, report.changedIds);
  } else {
    session.out().line(
        fmt::format("{} {}.", counted(report.changedIds.size(), "skill"), enabled ? "enabled" : "disabled"));
  }
  showProblemsBesideArray(session, report.errors, report.interrupted);
  return bulkStatus(report.changedIds.size(), report.errors.size(), report.interrupted);
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
