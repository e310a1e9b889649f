#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/commands/BackupViews.h"
#include "cli/commands/Presets.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

void showFirstSteps(const Session& session, const DashboardStats& stats) {
  const Terminal& out = session.out();
  out.line("");
  out.line("The library is empty. To begin with:");
  out.line("  orvanta discover                     see the skills that your agents hold");
  out.line("  orvanta import --discovered --all    copy them into the library");
  out.line("  orvanta install DIR --all            copy in every skill below a folder");
  if (stats.installedAgents == 0) {
    out.line("");
    out.line("No agent was found on this machine. 'orvanta agent list' shows those that Orvanta knows,");
    out.line("'orvanta agent add' adds one of your own.");
  }
}

void showProblems(const Session& session, const DashboardStats& stats) {
  const Terminal& out = session.out();
  if (stats.brokenTargets > 0) {
    const auto broken = counted(static_cast<std::size_t>(stats.brokenTargets), "broken deployment");
    out.line("");
    out.line(out.styled(fmt::format("{}: 'orvanta repair' fixes what can be fixed.", broken), Style::warning));
  }
}

std::string presetText(SkillsEngine& engine, const std::optional<Preset>& active) {
  if (!active) return "none active";
  return fmt::format("{}, {} deployed", Text::singleLine(active->name), deployedText(engine.presetActivation(*active)));
}

void showFigures(Session& session, const DashboardStats& stats, const std::optional<Preset>& active) {
  const Terminal& out = session.out();
  const bool relocated = session.engine().isRelocated();
  const auto row = [&out](const char* title, const std::string& text) {
    out.line(fmt::format("{}{}", out.styled(fmt::format("{:<9}", title), Style::strong), text));
  };
  row("Library", shortPath(session.engine().paths().base(), session.user()) + (relocated ? " (relocated)" : ""));
  const std::string updates =
      stats.updatesAvailable == 0 ? "" : fmt::format(", {} with updates", stats.updatesAvailable);
  row("Skills", fmt::format("{}, {} enabled{}, {}", stats.totalSkills, stats.enabledSkills, updates,
                            byteCount(stats.librarySizeBytes)));
  row("Agents", fmt::format("{} installed, {} active", stats.installedAgents, stats.activeAgents));
  row("Preset", presetText(session.engine(), active));
  row("Projects", fmt::format("{}", stats.projects));
  row("Tags", fmt::format("{}", stats.tags));
  row("Backup", backupText(session.engine().backupStatus()));
}

ExitStatus run(Session& session) {
  SkillsEngine& engine = session.engine();
  const DashboardStats stats = engine.dashboardStats();
  const auto active = activePreset(engine);
  if (session.json()) {
    writeJson(session.out().stream(), {{"library", engine.paths().base().string()},
                                       {"relocated", engine.isRelocated()},
                                       {"stats", stats},
                                       {"activePreset", active ? presetReference(*active) : Json()},
                                       {"backup", engine.backupStatus()}});
    return ExitStatus::done;
  }
  showFigures(session, stats, active);
  showProblems(session, stats);
  if (stats.totalSkills == 0) showFirstSteps(session, stats);
  return ExitStatus::done;
}

}  // namespace

void setUpStatus(CommandLine& line) {
  line.runs(run);
  line.example("orvanta status", "Where the library is, what it holds, what needs attention");
  line.explain("'orvanta' without a command does the same.");
}

}  // namespace orvanta::cli
