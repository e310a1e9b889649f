#include <algorithm>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

// Sources asked at once: more were measured to be no faster.
constexpr std::size_t kAtOnce = 8;

struct Options {
  std::vector<std::string> skills;
};

std::string said(UpdateStatus status) {
  switch (status) {
    case UpdateStatus::available: return "update available";
    case UpdateStatus::sourceMissing: return "source missing";
    default: return std::string(rawValue(status));
  }
}

bool isWorthSaying(UpdateStatus status) {
  return status == UpdateStatus::available || status == UpdateStatus::sourceMissing;
}

void show(const Session& session, const std::vector<SkillRecord>& skills, const UpdateCheckReport& report) {
  Table table({{"SKILL", true}, {"STATUS"}, {"SOURCE", true}});
  std::size_t available = 0;
  for (const SkillRecord& skill : skills) {
    const auto found = report.statuses.find(skill.id);
    if (found == report.statuses.end() || !isWorthSaying(found->second)) continue;
    const bool isAvailable = found->second == UpdateStatus::available;
    if (isAvailable) ++available;
    table.add({{skill.name, Style::strong},
               {said(found->second), isAvailable ? Style::good : Style::warning},
               skill.sourceRef.value_or("")});
  }
  table.write(session.out());
  session.out().line(fmt::format("{} checked, {} available.", counted(report.statuses.size(), "skill"),
                                 available == 0 ? "no update" : counted(available, "update")));
  if (available > 0) session.note("Next: orvanta diff SKILL, orvanta update SKILL…   (or --all)");
}

ExitStatus run(Session& session, const Options& options) {
  SkillsEngine& engine = session.engine();
  const auto skills = options.skills.empty() ? engine.skills() : skillsNamed(engine, options.skills);
  const auto report = session.change(
      [&](const OperationContext& context) { return engine.checkUpdates(idsOf(skills), kAtOnce, context); });
  if (session.json()) {
    Json statuses = Json::object();
    for (const auto& [id, status] : report.statuses) statuses[id] = rawValue(status);
    JsonObject document(session.out().stream());
    document.member("statuses", statuses);
    document.member("errors", report.errors);
  } else {
    show(session, skills, report);
  }
  std::vector<std::string> errors;
  for (const SkillRecord& skill : skills) {
    const auto error = report.errors.find(skill.id);
    if (error != report.errors.end()) errors.push_back(skill.name + ": " + error->second);
  }
  showProblems(session, errors, report.interrupted);
  return bulkStatus(report.statuses.size() - errors.size(), errors.size(), report.interrupted);
}

}  // namespace

void setUpCheck(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("SKILL", options.skills, "The skills; without any, all of them", Completes::skills);
  line.example("orvanta check", "Look for updates of every skill");
  line.example("orvanta check pdf docx", "Look for updates of two");
  line.explain(
      "Asks repositories for their latest commit and compares folders on this disk with the library. Nothing is "
      "fetched: what has changed shows orvanta diff, and orvanta update brings it in.");
}

}  // namespace orvanta::cli
