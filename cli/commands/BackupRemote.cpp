#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/BackupViews.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct RemoteOptions {
  std::optional<std::string> url;
  bool remove = false;
};
struct PullOptions {
  bool dryRun = false;
};
struct RestoreOptions {
  std::string commit;
  bool dryRun = false;
};
struct CloneOptions {
  std::string url;
};

ExitStatus runRemote(Session& session, const RemoteOptions& options) {
  SkillsEngine& engine = session.engine();
  if (options.url || options.remove) {
    session.change([&](const OperationContext& context) {
      engine.setBackupRemote(options.remove ? std::nullopt : options.url, context);
    });
  }
  const auto remote = engine.backupStatus().remoteURL;
  return showBackup(session, Text::singleLine(remote.value_or("There is no remote.")));
}

ExitStatus runPush(Session& session) {
  session.change([&](const OperationContext& context) { session.engine().pushBackup(context); });
  return showBackup(session, "All snapshots are at the remote.");
}

ExitStatus runPull(Session& session, const PullOptions& options) {
  SkillsEngine& engine = session.engine();
  if (options.dryRun) {
    return showPlan(session,
                    lookedAt(session, [&](const OperationContext& context) { return engine.planPullBackup(context); }));
  }
  const auto report = session.change([&](const OperationContext& context) { return engine.pullBackup(context); });
  const bool isQuiet = report.added.empty() && report.renewed.empty() && report.missing.empty();
  return showReconciled(session, report,
                        isQuiet ? "The remote has nothing new for the skills here."
                                : fmt::format("{} added, {} changed, {} missing.", report.added.size(),
                                              report.renewed.size(), report.missing.size()));
}

ExitStatus runRestore(Session& session, const RestoreOptions& options) {
  SkillsEngine& engine = session.engine();
  const Plan plan = lookedAt(
      session, [&](const OperationContext& context) { return engine.planRestoreBackup(options.commit, context); });
  if (options.dryRun) return showPlan(session, plan);
  confirmLosses(session, plan, "Go back to this snapshot?");
  const auto report =
      session.change([&](const OperationContext& context) { return engine.restoreBackup(options.commit, context); });
  return showReconciled(session, report,
                        fmt::format("Back at the snapshot: {} added, {} changed, {} missing. What was there is in the "
                                    "history.",
                                    report.added.size(), report.renewed.size(), report.missing.size()));
}

ExitStatus runClone(Session& session, const CloneOptions& options) {
  const auto report = session.change(
      [&](const OperationContext& context) { return session.engine().restoreLibraryFromRemote(options.url, context); });
  return showReconciled(session, report,
                        fmt::format("The library holds {} now.", counted(report.added.size(), "skill")));
}

}  // namespace

void setUpBackupRemote(CommandLine& line) {
  RemoteOptions& options = line.runs<RemoteOptions>(runRemote);
  Input& url = line.argument("URL", options.url, "A Git repository that you may write to; without it, the one in use");
  line.flag("--remove", options.remove, "Send snapshots nowhere any more").excludes(url);
  line.example("orvanta backup remote git@github.com:me/skills.git", "Send snapshots there from now on");
  line.example("orvanta backup remote /media/stick/skills.git", "A bare repository on a disk");
  line.explain(
      "Choose a private repository: whoever can write to it can put skills into your library. The GitHub token of "
      "'orvanta token set' is sent to GitHub.");
}

void setUpBackupPush(CommandLine& line) {
  line.runs(runPush);
  line.example("orvanta backup push", "Save what has changed, and send it");
}

void setUpBackupPull(CommandLine& line) {
  PullOptions& options = line.runs<PullOptions>(runPull);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta backup pull", "Save what has changed here, then bring in what the remote has");
  line.explain(
      "Where both sides changed the same skill, nothing is brought in: the skills are named, everything stays as it "
      "was, and you settle it with git. A skill that is gone on the other side stays known as missing, and returns "
      "when "
      "its folder does.");
}

void setUpBackupRestore(CommandLine& line) {
  RestoreOptions& options = line.runs<RestoreOptions>(runRestore);
  line.argument("COMMIT", options.commit, "The snapshot, by some digits of its id").required();
  line.dryRunFlag(options.dryRun);
  line.example("orvanta backup restore 1a2b3c4d", "The files become those of that snapshot, after asking");
  line.explain(
      "A new snapshot records the restore, and what was not saved yet is saved before, so that nothing is lost from "
      "the "
      "history. 'orvanta backup history' lists the snapshots.");
}

void setUpBackupClone(CommandLine& line) {
  CloneOptions& options = line.runs<CloneOptions>(runClone);
  line.argument("URL", options.url, "The repository that another library pushes to").required();
  line.example("orvanta backup clone git@github.com:me/skills.git", "On a new computer: get the library back");
  line.explain(
      "Only an empty library can be filled so. For any other: 'orvanta backup init', then 'backup remote' and 'backup "
      "pull'.");
}

}  // namespace orvanta::cli
