#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct Options {
  bool dryRun = false;
};

std::string sentenceOf(const ApplyReport& report) {
  std::string sentence =
      report.deployed == 0 && report.errors.empty()
          ? "Nothing needed repair."
          : fmt::format("{} repaired.", counted(static_cast<std::size_t>(report.deployed), "deployment"));
  if (report.removed > 0) {
    sentence +=
        fmt::format(" Forgot {} of skills that are gone.", counted(static_cast<std::size_t>(report.removed), "record"));
  }
  return sentence;
}

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  if (options.dryRun) return showPlan(session, engine.planRepair());
  const ApplyReport report =
      session.change([&](const OperationContext& context) { return engine.repairDeployments(context); });
  return showReport(session, report, sentenceOf(report));
}

}  // namespace

void setUpRepair(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta repair", "Make every agent's folder what the library says it is");
  line.explain(
      "Links that are gone or point elsewhere are made anew, and copies that differ from the library are copied again. "
      "Disabled skills are left alone.");
}

}  // namespace orvanta::cli
