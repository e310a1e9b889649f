#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "cli/commands/Projects.h"
#include "files/FS.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

ExitStatus import(Session& session, const ProjectSkillOptions& options) {
  SkillsEngine& engine = session.engine();
  const ChosenSkill chosen = chosenSkill(session, options);
  const std::string& id = chosen.project.id;
  if (options.dryRun) return showPlan(session, engine.planImportProjectSkill(id, chosen.path));
  const SkillSummary summary = session.change(
      [&](const OperationContext& context) { return engine.importProjectSkill(id, chosen.path, context); });
  return showSummary(session, summary, fmt::format("{} is in the library now.", inQuotes(summary.record.name)));
}

bool isInSync(const ChosenSkill& chosen) {
  return chosen.skill && chosen.skill->syncStatus == ProjectSyncStatus::inSync;
}

std::string whyInSync(Session& session, const ChosenSkill& chosen) {
  const bool isLinkIntoLibrary =
      chosen.skill->isSymlink && isInside(FS::resolved(chosen.path), FS::resolved(session.engine().paths().skills()));
  const std::string name = inQuotes(chosen.name());
  return isLinkIntoLibrary ? fmt::format("{} is a link into the library, so it is always the same.", name)
                           : fmt::format("{} is the same in the library already.", name);
}

ExitStatus showPulled(Session& session, const ChosenSkill& chosen, const std::string& sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), skillAfterChange(session, chosen, !chosen.skill || chosen.skill->enabled));
  } else {
    session.out().line(sentence);
  }
  return ExitStatus::done;
}

ExitStatus pull(Session& session, const ProjectSkillOptions& options) {
  SkillsEngine& engine = session.engine();
  const ChosenSkill chosen = chosenSkill(session, options);
  const Plan plan = engine.planUpdateProjectSkillFromCenter(chosen.project.id, chosen.path);
  if (options.dryRun) return showPlan(session, plan);
  const std::string project = inQuotes(chosen.project.name);
  const std::string name = inQuotes(chosen.name());
  if (!isInSync(chosen)) {
    confirmLosses(session, plan, fmt::format("Overwrite {} in {} with the library's version?", name, project));
  }
  session.change([&](const OperationContext&) { engine.updateProjectSkillFromCenter(chosen.project.id, chosen.path); });
  return showPulled(session, chosen,
                    isInSync(chosen) ? whyInSync(session, chosen)
                                     : fmt::format("{} in {} is what the library holds.", name, project));
}

bool isOwn(const SkillRecord& record) {
  return record.sourceType == SourceType::local || record.sourceType == SourceType::imported;
}

// An update of a skill from elsewhere would undo what is pushed into it, which nobody expects.
std::string warningFor(SkillsEngine& engine, const ChosenSkill& chosen) {
  if (!chosen.skill || !chosen.skill->centerSkillId) return "";
  const SkillRecord record = engine.summary(*chosen.skill->centerSkillId).record;
  if (isOwn(record)) return "";
  return fmt::format("{} came from {}, and its next update would overwrite this again. ", inQuotes(record.name),
                     Text::singleLine(record.sourceRef.value_or(std::string(label(record.sourceType)))));
}

ExitStatus push(Session& session, const ProjectSkillOptions& options) {
  SkillsEngine& engine = session.engine();
  const ChosenSkill chosen = chosenSkill(session, options);
  const Plan plan = engine.planUpdateCenterFromProject(chosen.project.id, chosen.path);
  if (options.dryRun) return showPlan(session, plan);
  const std::string project = inQuotes(chosen.project.name);
  if (!isInSync(chosen)) {
    confirmLosses(session, plan,
                  fmt::format("{}Overwrite {} in the library with the version of {}?", warningFor(engine, chosen),
                              inQuotes(chosen.name()), project));
  }
  const SkillSummary summary = session.change(
      [&](const OperationContext&) { return engine.updateCenterFromProject(chosen.project.id, chosen.path); });
  showSummary(session, summary,
              isInSync(chosen)
                  ? whyInSync(session, chosen)
                  : fmt::format("{} in the library is what {} holds.", inQuotes(summary.record.name), project));
  const auto errors = copiesThatDidNotFollow(summary);
  showProblemsBesideArray(session, errors, false);
  return bulkStatus(1, errors.size(), false);
}

}  // namespace

void setUpProjectImport(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(import));
  line.example("orvanta project import site .claude/skills/pdf", "Copy one of its skills into the library");
  line.explain("The project keeps its own. The result is the library's skill.");
}

void setUpProjectPull(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(pull));
  line.example("orvanta project pull site pdf", "Overwrite the project's copy with the library's version");
  line.explain(
      "It asks before it overwrites, and changes nothing when both are the same. With --json the result is the "
      "project's skill as 'orvanta project show' lists it.");
}

void setUpProjectPush(CommandLine& line) {
  projectAndPath(line, line.runs<ProjectSkillOptions>(push));
  line.example("orvanta project push site pdf", "Overwrite the library's version with the project's copy");
  line.explain(
      "It asks before it overwrites, and changes nothing when both are the same. Copies in agents' folders follow. The "
      "result is the library's skill.");
}

}  // namespace orvanta::cli
