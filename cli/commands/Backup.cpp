#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/BackupViews.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct NowOptions {
  std::optional<std::string> message;
};
struct HistoryOptions {
  std::int64_t limit = 20;
};
struct AutoOptions {
  std::string state;
};

void showNextStep(const Session& session, const BackupStatus& status) {
  const Terminal& out = session.out();
  if (!status.isRepository) out.line("Begin with: orvanta backup init");
  for (const auto& name : status.pendingConflicts) {
    out.line(out.styled(fmt::format("Both sides changed '{}'.", Text::singleLine(name)), Style::warning));
  }
  if (status.pendingConflicts.empty()) return;
  out.line("Settle it with git in the skills folder: 'git merge FETCH_HEAD', then 'orvanta backup push'.");
}

ExitStatus runStatus(Session& session) {
  const BackupStatus status = session.engine().backupStatus();
  if (session.json()) {
    writeJson(session.out().stream(), status);
    return ExitStatus::done;
  }
  const Terminal& out = session.out();
  const auto row = [&out](const char* title, const std::string& text) {
    out.line(fmt::format("{}{}", out.styled(fmt::format("{:<9}", title), Style::strong), text));
  };
  row("Backup", backupText(status));
  if (status.isRepository) {
    row("Remote", Text::singleLine(status.remoteURL.value_or("none")));
    row("Branch", Text::singleLine(status.branch.value_or("none")));
    if (status.lastCommit) {
      row("Latest", fmt::format("{}  {}  {}", localTime(status.lastCommit->date), status.lastCommit->sha.substr(0, 8),
                                Text::singleLine(status.lastCommit->message)));
    }
    row("Auto", session.engine().isBackupAutomatic() ? "on" : "off");
  }
  showNextStep(session, status);
  return ExitStatus::done;
}

ExitStatus runInit(Session& session) {
  session.change([&](const OperationContext& context) { session.engine().initBackup(context); });
  return showBackup(session, fmt::format("The library is a Git repository now: {}",
                                         shortPath(session.paths().skills(), session.user())));
}

ExitStatus runNow(Session& session, const NowOptions& options) {
  const bool isNew = session.change(
      [&](const OperationContext& context) { return session.engine().backupNow(options.message, context); });
  if (!isNew) return showBackup(session, "Nothing has changed since the last snapshot.");
  const auto newest = session.engine().backupHistory(1).front();
  return showBackup(session, fmt::format("Saved as {}: {}", newest.sha.substr(0, 8), Text::singleLine(newest.message)));
}

ExitStatus runHistory(Session& session, const HistoryOptions& options) {
  const auto commits = session.engine().backupHistory(static_cast<std::size_t>(options.limit));
  if (session.json()) {
    writeJsonArray(session.out().stream(), commits);
    return ExitStatus::done;
  }
  Table table({{"SNAPSHOT"}, {"TIME"}, {"MESSAGE", true}});
  for (const auto& commit : commits) {
    table.add({{commit.sha.substr(0, 8), Style::strong}, localTime(commit.date), commit.message});
  }
  table.write(session.out());
  if (table.isEmpty()) session.note("There is no snapshot yet.");
  return ExitStatus::done;
}

ExitStatus runAuto(Session& session, const AutoOptions& options) {
  session.engine().setBackupAutomatic(options.state == "on");
  return showBackup(session, options.state == "on"
                                 ? "Orvanta's window takes a snapshot by itself when changes have settled."
                                 : "Snapshots are taken only when you ask for them.");
}

}  // namespace

void setUpBackupStatus(CommandLine& line) {
  line.runs(runStatus);
  line.example("orvanta backup status", "Whether all is saved, and how the remote compares as far as is known");
}

void setUpBackupInit(CommandLine& line) {
  line.runs(runInit);
  line.example("orvanta backup init", "Take the first snapshot");
  line.explain(
      "The skills folder becomes a Git repository. A manifest in it holds what its files do not say: ids, sources, "
      "tags "
      "and which skills are enabled. Nothing leaves this computer before 'backup remote' and 'backup push'.");
}

void setUpBackupNow(CommandLine& line) {
  NowOptions& options = line.runs<NowOptions>(runNow);
  line.option("-m,--message", options.message, "TEXT", "What the snapshot is called");
  line.example("orvanta backup now", "Save what has changed");
  line.example("orvanta backup now -m before-clean-up", "With words of your own");
}

void setUpBackupHistory(CommandLine& line) {
  HistoryOptions& options = line.runs<HistoryOptions>(runHistory);
  line.option("--limit", options.limit, "N", "How many at most").between(1, 100'000);
  line.example("orvanta backup history", "The newest 20");
}

void setUpBackupAuto(CommandLine& line) {
  AutoOptions& options = line.runs<AutoOptions>(runAuto);
  line.argument("STATE", options.state, "on or off").required().oneOf({"on", "off"});
  line.example("orvanta backup auto on", "Let Orvanta's window take snapshots after changes");
  line.explain(
      "Commands take no snapshots by themselves, so that they stay quick: run 'orvanta backup now' at the end of a "
      "script.");
}

}  // namespace orvanta::cli
