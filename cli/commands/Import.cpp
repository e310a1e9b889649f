#include <algorithm>

#include <fmt/format.h>

#include "cli/Choice.h"
#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Plans.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "cli/commands/InstallResult.h"
#include "foundations/SkillsError.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> words;
  std::string agent;
  bool discovered = false;
  bool all = false;
  bool adopt = false;
  bool dryRun = false;
};

using Groups = std::vector<DiscoveredGroup>;

void confirmAdopting(Session& session, const Plan& plan) {
  if (session.willAsk()) showLosses(session, plan);
  session.confirm("Let the library manage the originals, which are replaced by deployments?");
}

ExitStatus importPath(Session& session, const Options& options) {
  if (options.words.size() != 1 || options.agent.empty()) {
    throw UsageError(
        "Name one folder and its agent: 'orvanta import PATH --agent AGENT'. 'orvanta import --discovered' "
        "imports what 'orvanta discover' lists.");
  }
  SkillsEngine& engine = session.engine();
  const std::string agent = agentNamed(engine, options.agent);
  const auto path = pathInAgentFolder(session, options.words.front(), agent);
  if (options.dryRun || options.adopt) {
    const Plan plan = engine.planImport(path, agent, options.adopt);
    if (options.dryRun) return showPlan(session, plan);
    confirmAdopting(session, plan);
  }
  return session.change([&](const OperationContext& context) {
    InstallReport report;
    report.installed.push_back(engine.importUnmanaged(path, agent, options.adopt));
    return showInstalled(session, report, {}, context);
  });
}

Groups chosenGroups(const Session& session, const Groups& groups, const Options& options) {
  if (options.all || groups.empty()) return groups;
  if (!options.words.empty()) return groupsNamed(groups, options.words);
  if (!session.canAsk() || session.json()) {
    throw UsageError(fmt::format("There are {} discovered skills. Name those to import, or add --all.", groups.size()));
  }
  std::vector<std::string> items;
  for (const DiscoveredGroup& group : groups) {
    items.push_back(fmt::format("{}  {}", group.name, group.locations.empty() ? "" : group.locations[0].foundPath));
  }
  Groups chosen;
  for (const std::size_t position : choose(session, items, "Import which?")) chosen.push_back(groups[position]);
  return chosen;
}

// One member of each group goes into the library; with adoption every member becomes a deployment.
Plan planOf(SkillsEngine& engine, const Groups& groups, bool adopt) {
  Plan plan;
  for (const DiscoveredGroup& group : groups) {
    bool isFirst = true;
    for (const DiscoveredLocation& location : group.locations) {
      if (!isFirst && !adopt) break;
      for (PlannedStep& step : engine.planImport(location.foundPath, location.tool, adopt)) {
        if (isFirst || !isInside(step.path, engine.paths().skills())) plan.push_back(std::move(step));
      }
      isFirst = false;
    }
  }
  return plan;
}

ExitStatus importDiscovered(Session& session, const Options& options) {
  if (!options.agent.empty()) throw UsageError("--agent goes with a PATH, not with --discovered.");
  SkillsEngine& engine = session.engine();
  const auto found = session.change([&](const OperationContext& context) { return engine.discover(context); });
  if (session.wasInterrupted()) return ExitStatus::interrupted;
  const Groups groups = chosenGroups(session, found, options);
  if (options.dryRun) return showPlan(session, planOf(engine, groups, options.adopt));
  if (options.adopt && !groups.empty() && !session.options().yes) {
    confirmAdopting(session, session.willAsk() ? planOf(engine, groups, true) : Plan{});
  }
  return session.change([&](const OperationContext& context) {
    const InstallReport report =
        groups.empty() ? InstallReport{} : engine.importDiscovered(groups, options.adopt, context);
    return showInstalled(session, report, {}, context);
  });
}

ExitStatus run(Session& session, const Options& options) {
  return options.discovered ? importDiscovered(session, options) : importPath(session, options);
}

}  // namespace

void setUpImport(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("PATH", options.words,
                "A skill's folder in the agent's folder; with --discovered, names or fingerprints of discovered skills",
                Completes::files);
  agentOption(line, "--agent", options.agent, "The agent in whose folder PATH lies");
  auto& discovered = line.flag("--discovered", options.discovered, "Import what 'orvanta discover' lists");
  line.flag("--all", options.all, "All discovered skills").needs(discovered);
  line.flag("--adopt", options.adopt, "Replace the originals by deployments of the library's skill, after asking");
  line.dryRunFlag(options.dryRun);
  line.example("orvanta import ~/.cursor/skills/pdf --agent cursor", "Copy one skill into the library");
  line.example("orvanta import --discovered --all --adopt", "Let the library manage all that agents hold");
}

}  // namespace orvanta::cli
