#include "cli/commands/BackupViews.h"

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

std::vector<std::string> parts(const BackupStatus& status) {
  std::vector<std::string> parts;
  if (!status.pendingConflicts.empty()) {
    parts.push_back(counted(status.pendingConflicts.size(), "conflict") + " to settle");
  }
  if (status.dirtyFiles > 0) {
    parts.push_back(counted(static_cast<std::size_t>(status.dirtyFiles), "change") + " not saved");
  }
  if (status.ahead > 0) parts.push_back(fmt::format("{} to push", status.ahead));
  if (status.behind > 0) parts.push_back(fmt::format("{} to pull", status.behind));
  return parts;
}

void listSkills(const Session& session, const std::vector<std::string>& names, const char* what) {
  constexpr std::size_t kMost = 20;
  if (names.empty()) return;
  std::vector<std::string> shown;
  for (std::size_t i = 0; i < std::min(names.size(), kMost); ++i) shown.push_back(Text::singleLine(names[i]));
  if (names.size() > kMost) shown.push_back(fmt::format("and {} more", names.size() - kMost));
  session.out().line(fmt::format("  {:<8} {}", what, Text::join(shown, ", ")));
}

}  // namespace

std::string backupText(const BackupStatus& status) {
  if (!status.gitAvailable) return "git is not installed";
  if (!status.isRepository) return "not set up";
  const auto open = parts(status);
  if (!open.empty()) return Text::join(open, ", ");
  return status.lastCommit ? "all saved " + localTime(status.lastCommit->date) : "no snapshot yet";
}

ExitStatus showBackup(Session& session, const std::string& sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), session.engine().backupStatus());
  } else {
    session.out().line(sentence);
  }
  return ExitStatus::done;
}

ExitStatus showReconciled(Session& session, const ReconcileReport& report, const std::string& sentence) {
  if (session.json()) {
    writeJson(session.out().stream(), report.asApplied());
    return report.errors.empty() ? ExitStatus::done : ExitStatus::partly;
  }
  session.out().line(sentence);
  listSkills(session, report.added, "added");
  listSkills(session, report.renewed, "changed");
  listSkills(session, report.missing, "missing");
  session.problems(report.errors);
  return report.errors.empty() ? ExitStatus::done : ExitStatus::partly;
}

}  // namespace orvanta::cli
