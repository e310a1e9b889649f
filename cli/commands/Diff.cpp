#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/UpdateViews.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string skill;
};

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const SkillRecord record = skillNamed(engine, options.skill);
  const IncomingUpdate update =
      lookedAt(session, [&](const OperationContext& context) { return engine.previewUpdate(record.id, context); });
  UpdateView view;
  if (!update.changesNothing()) {
    view = lookedAt(session, [&](const OperationContext& context) { return engine.viewOf(update, context); });
  }
  if (session.json()) {
    writeJson(session.out().stream(), viewAsJson(update, view));
    return ExitStatus::done;
  }
  if (view.changes.empty()) {
    session.out().line(fmt::format("There is nothing new for {}.", inQuotes(record.name)));
    return ExitStatus::done;
  }
  showView(session.out(), view);
  if (update.overwritesEdits()) {
    session.note("The skill was changed by hand in the library; an update would undo that.");
  }
  session.note("Next: orvanta update " + inQuotes(record.name));
  return ExitStatus::done;
}

}  // namespace

void setUpDiff(CommandLine& line) {
  skillArgument(line, line.runs<Options>(run).skill);
  line.example("orvanta diff pdf", "What an update of this skill would change");
  line.explain(
      "Compares what the library holds with what the skill's source has now, and changes nothing. Files that become "
      "executable and characters that nobody sees are pointed out, since an agent does what a skill says.");
}

}  // namespace orvanta::cli
