#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> skills;
  bool keepFiles = false;
  bool dryRun = false;
};

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const auto records = skillsNamed(engine, options.skills);
  const auto ids = idsOf(records);
  if (options.dryRun) return showPlan(session, engine.planRemoveSkills(ids, !options.keepFiles));
  if (session.willAsk()) {
    showLosses(session, engine.planRemoveSkills(ids, !options.keepFiles));
  }
  session.confirm(fmt::format("Remove {} from the library and from every agent?", skillsAsText(records)));
  const RemovalReport report = session.change(
      [&](const OperationContext& context) { return engine.removeSkills(ids, !options.keepFiles, context); });
  if (session.json()) {
    JsonObject document(session.out().stream());
    document.array("removed", report.removed);
    document.array("notes", report.notes);
    document.array("errors", report.errors);
  } else {
    session.out().line(fmt::format("{} removed{}.", counted(report.removed.size(), "skill"),
                                   options.keepFiles ? "; the folders in the library were kept" : ""));
  }
  if (!session.json()) {
    for (const std::string& note : report.notes) session.note(Text::singleLine(note));
  }
  showProblems(session, report.errors, report.interrupted);
  return bulkStatus(report.removed.size(), report.errors.size(), report.interrupted);
}

}  // namespace

void setUpRemove(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  skillArguments(line, options.skills);
  line.flag("--keep-files", options.keepFiles, "Keep the skills' folders in the library; forget only the records");
  line.dryRunFlag(options.dryRun);
  line.example("orvanta remove pdf", "Remove one skill, after asking");
  line.example("orvanta remove pdf docx --yes", "Remove two without asking");
}

}  // namespace orvanta::cli
