#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "cli/commands/Projects.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string project;
  std::vector<std::string> skills;
  std::vector<std::string> agents;
  std::string mode{rawValue(SyncMode::copy)};
  bool force = false;
  bool dryRun = false;
};

void confirmForce(Session& session, const ProjectRecord& project, const ProjectExport& request) {
  SkillsEngine& engine = session.engine();
  ProjectExport careful = request;
  careful.force = false;
  const Plan losses = forcedReplacements(engine.planExportToProject(project.id, careful),
                                         engine.planExportToProject(project.id, request));
  confirmLosses(session, losses,
                fmt::format("Replace {} in {}?", counted(losses.size(), "folder"), inQuotes(project.name)));
}

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const ProjectRecord project = projectNamed(engine, options.project);
  const ProjectExport request{skillIdsNamed(engine, options.skills), agentsNamed(engine, options.agents),
                              parseSyncMode(options.mode).value_or(SyncMode::copy), options.force};
  if (options.dryRun) return showPlan(session, engine.planExportToProject(project.id, request));
  if (options.force && !session.options().yes) confirmForce(session, project, request);
  const ApplyReport report = session.change(
      [&](const OperationContext& context) { return engine.exportToProject(project.id, request, context); });
  return showReport(session, report, fmt::format("{}: {}", inQuotes(project.name), figuresOf(report)));
}

}  // namespace

void setUpProjectExport(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  projectArgument(line, options.project);
  skillArguments(line, options.skills);
  agentsOption(line, "--agent", options.agents, "The agents that get the skills inside the project").required();
  std::vector<std::string> modes;
  for (const SyncMode mode : kAllSyncModes) modes.emplace_back(rawValue(mode));
  line.option("--mode", options.mode, "MODE", "copy (the default) or symlink").oneOf(modes);
  line.flag("--force", options.force, "Replace folders of the same name, after asking");
  line.dryRunFlag(options.dryRun);
  line.example("orvanta project export site pdf --agent cursor", "Copy one skill into the project");
  line.explain(
      "Copies travel with the project; links stay in sync with the library, but work on this machine only. A folder of "
      "your own is never replaced without --force.");
}

}  // namespace orvanta::cli
