#include "cli/commands/InstallResult.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kScreenful = 20;

void writeJson(const Session& session, const InstallReport& report, const PlacementReport& placements, bool hasAgents) {
  std::vector<std::string> errors = report.errors;
  errors.insert(errors.end(), placements.errors.begin(), placements.errors.end());
  JsonObject document(session.out().stream());
  document.array("installed", report.installed);
  if (hasAgents) document.array("deployed", placements.done);
  document.array("errors", errors);
}

void writeText(Session& session, const InstallReport& report) {
  const Terminal& out = session.out();
  const auto& reused = report.reusedIds;
  const auto isReused = [&](const SkillSummary& summary) {
    return std::find(reused.begin(), reused.end(), summary.record.id) != reused.end();
  };
  if (report.installed.size() <= kScreenful) {
    Table table({{"SKILL", true}, {"FOLDER", true}, {"AGENTS", true}, {"NOTE"}});
    for (const SkillSummary& summary : report.installed) {
      table.add({{summary.record.name, Style::strong},
                 shortPath(summary.record.centralPath, session.user()),
                 Text::join(summary.deployedTools(), ", "),
                 isReused(summary) ? "already there" : ""});
    }
    table.write(out);
  }
  const std::size_t copied = report.installed.size() - reused.size();
  std::string sentence = fmt::format("{} installed.", counted(copied, "skill"));
  if (!reused.empty()) sentence += fmt::format(" {} there already with the same content.", reused.size());
  out.line(sentence);
}

void suggestDeploying(const Session& session, const InstallReport& report) {
  if (report.installed.empty() || !report.installed.front().targets.empty()) return;
  const std::string name = report.installed.size() == 1 ? inQuotes(report.installed.front().record.name) : "SKILL…";
  session.note(fmt::format("Next: orvanta deploy {} --to AGENT   ('orvanta agent list' shows the agents)", name));
}

}  // namespace

ExitStatus deployInstalled(Session& session, const InstallReport& report, const std::vector<std::string>& agents,
                           const OperationContext& context) {
  PlacementReport placements;
  if (!agents.empty() && !report.interrupted) {
    std::vector<std::string> ids;
    for (const SkillSummary& summary : report.installed) ids.push_back(summary.record.id);
    placements = session.engine().deploy(ids, agents, false, context);
  }
  const bool interrupted = report.interrupted || placements.interrupted;
  if (session.json()) {
    writeJson(session, report, placements, !agents.empty());
  } else {
    writeText(session, report);
    if (!agents.empty()) showPlacements(session, placements.done, "placed");
  }
  showProblems(session, report.errors, false);
  showProblems(session, placements.errors, interrupted);
  if (!session.json() && agents.empty()) suggestDeploying(session, report);
  return bulkStatus(report.installed.size() + placements.done.size(), report.errors.size() + placements.errors.size(),
                    interrupted);
}

}  // namespace orvanta::cli
