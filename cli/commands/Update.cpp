#include <algorithm>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/Table.h"
#include "cli/UpdateViews.h"
#include "cli/UsageError.h"
#include "cli/commands/Common.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> skills;
  bool all = false;
  bool dryRun = false;
};

struct ReimportOptions {
  std::string skill;
  bool dryRun = false;
};

std::vector<const IncomingUpdate*> withNews(const FetchedUpdates& fetched) {
  std::vector<const IncomingUpdate*> updates;
  for (const IncomingUpdate& update : fetched.updates) {
    if (!update.changesNothing()) updates.push_back(&update);
  }
  return updates;
}

void showOverview(const Session& session, const std::vector<const IncomingUpdate*>& updates) {
  Table table({{"SKILL", true}, {"FILES"}, {"NOTE", true}});
  for (const IncomingUpdate* update : updates) {
    const std::string note = update->overwritesEdits() ? "changed by hand in the library; that would be lost" : "";
    table.add({{update->skill().name, Style::strong}, figuresOf(update->changes()), {note, Style::bad}});
  }
  table.write(session.err());
  for (const IncomingUpdate* update : updates) {
    for (const std::string& finding : findingsIn(update->changes())) {
      session.err().line(fmt::format("{} {}: {}.", session.err().styled("note:", Style::warning),
                                     inQuotes(update->skill().name), Text::singleLine(finding)));
    }
  }
}

void showDifferences(Session& session, const std::vector<const IncomingUpdate*>& updates) {
  for (const IncomingUpdate* update : updates) {
    const UpdateView view =
        lookedAt(session, [&](const OperationContext& context) { return session.engine().viewOf(*update, context); });
    session.err().line(session.err().styled(Text::singleLine(update->skill().name), Style::strong));
    showView(session.err(), view);
  }
}

void withhold(FetchedUpdates& fetched) {
  fetched.withholdLostEdits();
  for (auto& [id, failure] : fetched.failures) {
    if (!failure.isWithheld) continue;
    failure.error = SkillsError(failure.error.kind(), failure.error.message() + " --yes confirms it.");
  }
}

// Where somebody can be asked, nothing is brought in that was not agreed to; elsewhere what was changed by hand stays.
void decide(Session& session, FetchedUpdates& fetched) {
  if (session.options().yes) return;
  if (!session.canAsk()) return withhold(fetched);
  const auto updates = withNews(fetched);
  if (updates.empty()) return;
  showOverview(session, updates);
  const std::string what =
      updates.size() == 1 ? inQuotes(updates.front()->skill().name) : counted(updates.size(), "skill");
  while (true) {
    const std::string answer =
        Text::lowercase(session.ask(fmt::format("Update {}? [y/N, d shows the differences]", what)).value_or(""));
    if (answer == "y" || answer == "yes") return;
    if (answer != "d") throw SkillsError::refused("Not confirmed, so nothing was changed.");
    showDifferences(session, updates);
  }
}

std::string sentenceOf(const UpdateReport& report) {
  if (report.updatedIds.empty()) {
    return report.failures.empty() ? "There is nothing new." : "Nothing was updated.";
  }
  std::string sentence = fmt::format("{} updated", counted(report.updatedIds.size(), "skill"));
  if (!report.unchangedIds.empty()) sentence += fmt::format(", {} with nothing new", report.unchangedIds.size());
  return sentence + ".";
}

FetchPurpose purposeOf(bool dryRun) { return dryRun ? FetchPurpose::preview : FetchPurpose::update; }

std::vector<std::string> copiesThatStayed(SkillsEngine& engine, const std::vector<std::string>& ids) {
  std::vector<std::string> errors;
  for (const std::string& id : ids) {
    for (std::string& error : copiesThatDidNotFollow(engine.summary(id))) errors.push_back(std::move(error));
  }
  return errors;
}

// What was fetched, brought in and shown; as the skill itself when there is only one.
ExitStatus bringIn(Session& session, FetchedUpdates fetched, bool dryRun, bool isOne) {
  SkillsEngine& engine = session.engine();
  if (dryRun) {
    if (!session.willAsk() && !session.options().yes) withhold(fetched);
    return showPlan(session, engine.planUpdates(fetched));
  }
  decide(session, fetched);
  if (isOne && !fetched.failures.empty()) throw fetched.failures.begin()->second.error;
  const UpdateReport report =
      session.change([&](const OperationContext& context) { return engine.applyUpdates(fetched, context); });
  const auto broken = copiesThatStayed(engine, report.updatedIds);
  if (!isOne) {
    ApplyReport figures = report.asApplied();
    figures.errors.insert(figures.errors.end(), broken.begin(), broken.end());
    return showReport(session, figures, sentenceOf(report));
  }
  if (!report.failures.empty()) throw report.failures.front().error;
  if (report.interrupted) throw SkillsError::refused("Stopped on request. Nothing was changed.");
  const SkillSummary summary = engine.summary(fetched.updates.front().skill().id);
  showSummary(session, summary,
              report.updatedIds.empty() ? fmt::format("There is nothing new for {}.", inQuotes(summary.record.name))
                                        : fmt::format("{} is updated.", inQuotes(summary.record.name)));
  showProblemsBesideArray(session, broken, /*interrupted=*/false);
  return bulkStatus(1, broken.size(), /*interrupted=*/false);
}

ExitStatus run(Session& session, const Options& options) {
  if (options.skills.empty() != options.all) {
    throw UsageError("Name the skills to update, or say --all for those with a known update.");
  }
  SkillsEngine& engine = session.engine();
  const auto ids = options.all ? engine.idsWithUpdates() : idsOf(skillsNamed(engine, options.skills));
  if (ids.empty() && !options.dryRun) {
    return showReport(session, {}, "No update is known. Look for updates with: orvanta check");
  }
  FetchedUpdates fetched = lookedAt(session, [&](const OperationContext& context) {
    return engine.fetchUpdates(ids, purposeOf(options.dryRun), context);
  });
  return bringIn(session, std::move(fetched), options.dryRun, !options.all && ids.size() == 1);
}

ExitStatus runReimport(Session& session, const ReimportOptions& options) {
  SkillsEngine& engine = session.engine();
  const SkillRecord record = skillNamed(engine, options.skill);
  FetchedUpdates fetched = lookedAt(session, [&](const OperationContext& context) {
    return engine.fetchReimport(record.id, purposeOf(options.dryRun), context);
  });
  return bringIn(session, std::move(fetched), options.dryRun, /*isOne=*/true);
}

}  // namespace

void setUpUpdate(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  auto& skills = line.argument("SKILL", options.skills, "The skills to update", Completes::skills);
  line.flag("--all", options.all, "All skills for which orvanta check has found an update").excludes(skills);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta update pdf", "Fetch what the skill's source has now");
  line.example("orvanta update --all --yes", "Bring in every known update without asking");
  line.explain(
      "On a terminal the changes are shown first, and you are asked. Links follow by themselves, copies in agents' "
      "folders are made anew. A skill that was changed by hand in the library is left alone where no one can be asked, "
      "unless --yes says that this may be lost.");
}

void setUpReimport(CommandLine& line) {
  ReimportOptions& options = line.runs<ReimportOptions>(runReimport);
  skillArgument(line, options.skill);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta reimport pdf", "Copy the skill anew from the folder it was installed from");
  line.explain("For skills that were installed from a folder on this disk; asks as orvanta update does.");
}

}  // namespace orvanta::cli
