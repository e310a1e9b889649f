#include <algorithm>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "cli/commands/Presets.h"

namespace orvanta::cli {

namespace {

struct DeployOptions {
  std::vector<std::string> skills;
  std::vector<std::string> agents;
  bool allAgents = false;
  bool only = false;
  bool force = false;
  bool dryRun = false;
};

struct UndeployOptions {
  std::vector<std::string> skills;
  std::vector<std::string> agents;
  bool allAgents = false;
  bool dryRun = false;
};

// The agents that can be meant by "all": those in use, and those that still hold one of the skills.
std::vector<std::string> agentsConcerned(SkillsEngine& engine, const std::vector<std::string>& ids) {
  const std::set<std::string> wanted(ids.begin(), ids.end());
  auto records = engine.skills();
  std::erase_if(records, [&](const SkillRecord& record) { return !wanted.contains(record.id); });
  std::set<std::string> holders;
  for (const SkillSummary& summary : engine.summaries(records)) {
    for (const SkillTarget& target : summary.targets) holders.insert(target.tool);
  }
  std::vector<std::string> keys;
  for (const ToolInfo& tool : engine.tools()) {
    if (tool.isActive() || holders.contains(tool.key)) keys.push_back(tool.key);
  }
  return keys;
}

std::vector<std::string> without(std::vector<std::string> keys, const std::vector<std::string>& taken) {
  const auto isTaken = [&](const std::string& key) {
    return std::find(taken.begin(), taken.end(), key) != taken.end();
  };
  keys.erase(std::remove_if(keys.begin(), keys.end(), isTaken), keys.end());
  return keys;
}

// Nothing is taken out while somebody cannot get the skills, nor what an agent that shall have it shares.
Plan withRemovals(Plan plan, const Plan& removals) {
  using Action = PlannedStep::Action;
  std::set<std::string> wanted;
  for (const PlannedStep& step : plan) {
    if (step.action == Action::refused) return plan;
    wanted.insert(step.path);
  }
  for (PlannedStep step : removals) {
    if (step.action == Action::remove && wanted.contains(step.path)) {
      step.action = Action::keep;
      step.reason = "kept: still used by another agent";
    }
    plan.push_back(std::move(step));
  }
  return plan;
}

void confirmReplacing(Session& session, const Plan& losses) {
  const std::string what = losses.size() == 1 ? "this folder" : fmt::format("these {} folders", losses.size());
  confirmLosses(session, losses, fmt::format("Replace {}, which Orvanta did not place?", what));
}

// Deploying and undeploying by hand changes what the active preset wants; whoever does it should know.
void notePreset(Session& session, const std::vector<Placement>& placements) {
  if (session.json() || placements.empty()) return;
  const auto preset = activePreset(session.engine());
  if (!preset) return;
  const auto isMember = [&](const Placement& placement) {
    const auto& ids = preset->skillIds;
    return std::find(ids.begin(), ids.end(), placement.skillId) != ids.end();
  };
  if (std::any_of(placements.begin(), placements.end(), isMember)) {
    session.note(fmt::format("The active preset {} follows.", inQuotes(preset->name)));
  }
}

void append(std::vector<std::string>& texts, const std::vector<std::string>& more) {
  texts.insert(texts.end(), more.begin(), more.end());
}

ExitStatus showResult(Session& session, const PlacementReport& placed, const PlacementReport& removed, bool only) {
  std::vector<std::string> errors = placed.errors;
  append(errors, removed.errors);
  const bool interrupted = placed.interrupted || removed.interrupted;
  if (session.json()) {
    JsonObject document(session.out().stream());
    document.array("deployed", placed.done);
    if (only) document.array("removed", removed.done);
    document.array("errors", errors);
  } else {
    showPlacements(session, placed.done, "placed");
    if (!removed.done.empty()) showPlacements(session, removed.done, "removed");
  }
  notePreset(session, placed.done);
  showProblems(session, errors, interrupted);
  return bulkStatus(placed.done.size() + removed.done.size(), errors.size(), interrupted);
}

ExitStatus deploy(Session& session, const DeployOptions& options) {
  if (options.agents.empty() && !options.allAgents) throw UsageError("Say where to: --to AGENT…, or --all-agents.");
  SkillsEngine& engine = session.engine();
  const auto ids = skillIdsNamed(engine, options.skills);
  const auto agents = options.allAgents ? activeAgents(engine) : agentsNamed(engine, options.agents);
  const auto others = options.only ? without(agentsConcerned(engine, ids), agents) : std::vector<std::string>{};
  if (options.dryRun) {
    const Plan plan = engine.planDeploy(ids, agents, options.force);
    return showPlan(session, options.only ? withRemovals(plan, engine.planUndeploy(ids, others)) : plan);
  }
  if (options.force && !session.options().yes) {
    confirmReplacing(session,
                     forcedReplacements(engine.planDeploy(ids, agents, false), engine.planDeploy(ids, agents, true)));
  }
  return session.change([&](const OperationContext& context) {
    PlacementReport placed = engine.deploy(ids, agents, options.force, context);
    // Whoever loses a skill must not lose it while those who shall have it do not.
    const bool takesOut = !others.empty() && !placed.interrupted && placed.errors.empty();
    if (!others.empty() && !takesOut) placed.errors.emplace_back("So nothing was taken out of the other agents.");
    return showResult(session, placed, takesOut ? engine.undeploy(ids, others, context) : PlacementReport{},
                      options.only);
  });
}

ExitStatus undeploy(Session& session, const UndeployOptions& options) {
  if (options.agents.empty() && !options.allAgents) throw UsageError("Say where from: --from AGENT…, or --all-agents.");
  SkillsEngine& engine = session.engine();
  const auto ids = skillIdsNamed(engine, options.skills);
  const auto agents = options.allAgents ? agentsConcerned(engine, ids) : agentsNamed(engine, options.agents);
  if (options.dryRun) return showPlan(session, engine.planUndeploy(ids, agents));
  const PlacementReport report =
      session.change([&](const OperationContext& context) { return engine.undeploy(ids, agents, context); });
  if (session.json()) {
    JsonObject document(session.out().stream());
    document.array("removed", report.done);
    document.array("errors", report.errors);
  } else {
    showPlacements(session, report.done, "removed");
  }
  notePreset(session, report.done);
  showProblems(session, report.errors, report.interrupted);
  return bulkStatus(report.done.size(), report.errors.size(), report.interrupted);
}

}  // namespace

void setUpDeploy(CommandLine& line) {
  DeployOptions& options = line.runs<DeployOptions>(deploy);
  skillArguments(line, options.skills);
  auto& to = agentsOption(line, "--to", options.agents, "The agents that get the skills");
  line.flag("--all-agents", options.allAgents, "Every agent that is installed and switched on").excludes(to);
  line.flag("--only", options.only, "Take the skills out of all other agents");
  line.flag("--force", options.force, "Replace folders of the same name that Orvanta did not place, after asking");
  line.dryRunFlag(options.dryRun);
  line.example("orvanta deploy pdf --to cursor", "Place one skill");
  line.example("orvanta deploy pdf docx --all-agents", "Place two skills everywhere");
  line.explain(
      "Skills are placed as links, or as copies after 'orvanta config set sync_mode copy'. A folder of your own is "
      "never "
      "replaced without --force.");
}

void setUpUndeploy(CommandLine& line) {
  UndeployOptions& options = line.runs<UndeployOptions>(undeploy);
  skillArguments(line, options.skills);
  auto& from = agentsOption(line, "--from", options.agents, "The agents that give the skills up");
  line.flag("--all-agents", options.allAgents, "Every agent that has them").excludes(from);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta undeploy pdf --from cursor", "Take one skill out of an agent's folder");
  line.example("orvanta undeploy pdf --all-agents", "Take it out of all; the library keeps it");
}

}  // namespace orvanta::cli
