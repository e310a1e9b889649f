#include "cli/commands/InstallResult.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "cli/commands/Presets.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kScreenful = 20;

std::vector<std::string> idsOf(const InstallReport& report) {
  std::vector<std::string> ids;
  for (const SkillSummary& summary : report.installed) ids.push_back(summary.record.id);
  return ids;
}

// What was installed stays so when the preset cannot take it. Returns whether it did.
bool addToPreset(SkillsEngine& engine, const Preset& preset, InstallReport& report) {
  if (report.installed.empty()) return false;
  try {
    engine.addSkillsToPreset(preset.id, idsOf(report));
    return true;
  } catch (const SkillsError& error) {
    report.errors.push_back(fmt::format("Preset {}: {}", inQuotes(preset.name), error.message()));
    return false;
  }
}

// With the agents and presets that the skills have by now.
std::vector<SkillSummary> currentSummaries(SkillsEngine& engine, const InstallReport& report) {
  std::vector<SkillRecord> records;
  for (const SkillSummary& summary : report.installed) records.push_back(summary.record);
  return engine.summaries(records);
}

void writeJson(Session& session, const InstallReport& report, const PlacementReport& placements,
               const Destinations& destinations, const std::optional<Preset>& preset) {
  std::vector<std::string> errors = report.errors;
  errors.insert(errors.end(), placements.errors.begin(), placements.errors.end());
  JsonObject document(session.out().stream());
  document.array("installed", currentSummaries(session.engine(), report));
  if (!destinations.agents.empty()) document.array("deployed", placements.done);
  if (preset) document.member("preset", presetReference(*preset));
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

ExitStatus showInstalled(Session& session, InstallReport report, const Destinations& destinations,
                         const OperationContext& context) {
  const auto& agents = destinations.agents;
  auto preset = destinations.preset;
  if (preset && !addToPreset(session.engine(), *preset, report)) preset.reset();
  PlacementReport placements;
  if (!agents.empty() && !report.interrupted) {
    placements = session.engine().deploy(idsOf(report), agents, false, context);
  }
  const bool interrupted = report.interrupted || placements.interrupted;
  if (session.json()) {
    writeJson(session, report, placements, destinations, preset);
  } else {
    writeText(session, report);
    if (preset) session.out().line(fmt::format("Added to the preset {}.", inQuotes(preset->name)));
    if (!agents.empty()) showPlacements(session, placements.done, "placed");
  }
  showProblems(session, report.errors, false);
  showProblems(session, placements.errors, interrupted);
  if (!session.json() && agents.empty()) suggestDeploying(session, report);
  return bulkStatus(report.installed.size() + placements.done.size(), report.errors.size() + placements.errors.size(),
                    interrupted);
}

}  // namespace orvanta::cli
