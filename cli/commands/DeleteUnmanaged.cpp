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
  std::string path;
  std::string agent;
  bool dryRun = false;
};

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const std::string agent = agentNamed(engine, options.agent);
  const auto path = pathInAgentFolder(session, options.path, agent);
  const Plan plan = engine.planDeleteUnmanaged(path, agent);
  if (options.dryRun) return showPlan(session, plan);
  if (session.willAsk()) showLosses(session, plan);
  session.confirm(
      fmt::format("Delete {}? The library has no copy of its own to bring it back.", inQuotes(fsPath(path))));
  session.change([&](const OperationContext&) { engine.deleteUnmanaged(path, agent); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"deleted", fsPath(path)}});
  } else {
    session.out().line(fmt::format("{} is deleted.", inQuotes(fsPath(path))));
  }
  return ExitStatus::done;
}

}  // namespace

void setUpDeleteUnmanaged(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("PATH", options.path, "The skill's folder in the agent's folder", Completes::files).required();
  agentOption(line, "--agent", options.agent, "The agent in whose folder it lies").required();
  line.dryRunFlag(options.dryRun);
  line.example("orvanta delete-unmanaged ~/.cursor/skills/old --agent cursor", "Delete it, after asking");
  line.explain("A skill that Orvanta placed is taken out with 'orvanta undeploy' instead.");
}

}  // namespace orvanta::cli
