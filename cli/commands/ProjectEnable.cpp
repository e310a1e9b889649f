#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Projects.h"

namespace orvanta::cli {

namespace {

ExitStatus setEnabled(Session& session, const ProjectSkillOptions& options, bool enabled) {
  SkillsEngine& engine = session.engine();
  const ChosenSkill chosen = chosenSkill(session, options);
  const std::string& id = chosen.project.id;
  if (options.dryRun) return showPlan(session, engine.planSetProjectSkillEnabled(id, chosen.path, enabled));
  session.change([&](const OperationContext&) { engine.setProjectSkillEnabled(id, chosen.path, enabled); });
  if (session.json()) {
    writeJson(session.out().stream(), skillAfterChange(session, chosen, enabled));
  } else {
    session.out().line(fmt::format("{} in {} is {}.", inQuotes(chosen.name()), inQuotes(chosen.project.name),
                                   enabled ? "enabled" : "disabled"));
  }
  return ExitStatus::done;
}

ExitStatus enable(Session& session, const ProjectSkillOptions& options) { return setEnabled(session, options, true); }

ExitStatus disable(Session& session, const ProjectSkillOptions& options) { return setEnabled(session, options, false); }

std::string whatStays(const ChosenSkill& chosen) {
  if (chosen.skill && chosen.skill->isSymlink) return "Only the link goes. ";
  if (!chosen.skill || !chosen.skill->inCenter) return "The library has no copy of it. ";
  return chosen.skill->syncStatus == ProjectSyncStatus::inSync ? "The library keeps its own. "
                                                               : "The library holds another version. ";
}

ExitStatus deleteSkill(Session& session, const ProjectSkillOptions& options) {
  SkillsEngine& engine = session.engine();
  const ChosenSkill chosen = chosenSkill(session, options);
  const std::string path = fsPath(chosen.path);
  const Plan plan = engine.planDeleteProjectSkill(chosen.project.id, chosen.path);
  if (options.dryRun) return showPlan(session, plan);
  confirmLosses(session, plan, fmt::format("{}Delete {}?", whatStays(chosen), inQuotes(path)));
  session.change([&](const OperationContext&) { engine.deleteProjectSkill(chosen.project.id, chosen.path); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"deleted", path}});
  } else {
    session.out().line(fmt::format("{} is deleted.", inQuotes(path)));
  }
  return ExitStatus::done;
}

}  // namespace

void setUpProjectEnable(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(enable));
  line.example("orvanta project enable site pdf", "Move it back to where its agent finds it");
  line.explain("With --json the result is the skill as 'orvanta project show' lists it.");
}

void setUpProjectDisable(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(disable));
  line.example("orvanta project disable site pdf", "Move it to where its agent does not find it");
  line.explain(
      "It moves to a folder beside its agent's, of the same name with \"-disabled\" after it. With --json the result "
      "is "
      "the skill as 'orvanta project show' lists it.");
}

void setUpProjectDelete(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(deleteSkill));
  line.example("orvanta project delete site pdf", "Delete it from the project, after asking");
  line.explain("The library keeps what it holds. With --json the result is {\"deleted\": PATH}.");
}

}  // namespace orvanta::cli
