#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Plans.h"
#include "cli/commands/Common.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct MoveOptions {
  std::string destination;
  bool dryRun = false;
};

struct ResetOptions {
  bool dryRun = false;
};

Json placeOf(Session& session) {
  const Paths& paths = session.settledPaths();
  return {{"path", fsPath(paths.base())}, {"relocated", paths.isRelocated(session.user())}};
}

ExitStatus path(Session& session) {
  if (session.json()) {
    writeJson(session.out().stream(), placeOf(session));
  } else {
    session.out().line(fsPath(session.settledPaths().base()));
  }
  return ExitStatus::done;
}

// What the user has to know or do now that the library is elsewhere.
void noteWhatIsLeft(Session& session, const RelocationReport& report) {
  if (!report.leftBehind.empty()) {
    session.note(fmt::format("What is not Orvanta's stays in {}: {}", shortPath(report.from, session.user()),
                             Text::singleLine(Text::join(report.leftBehind, ", "))));
  }
  const auto namedBy = session.namedBy();
  if (!namedBy.empty()) {
    session.note(fmt::format("{} named the old folder; use {} from now on", namedBy, fsPath(report.to)));
  }
}

ExitStatus showMoved(Session& session, const RelocationReport& report) {
  const std::string place = shortPath(report.to, session.user());
  if (session.json()) {
    Json result = placeOf(session);
    result["relinked"] = report.relinked;
    result["errors"] = report.errors;
    writeJson(session.out().stream(), result);
  } else if (!report.moved) {
    session.out().line(fmt::format("The library is at {} already.", place));
  } else {
    session.out().line(
        fmt::format("The library is at {} now. {} re-pointed.", place, counted(report.relinked, "link")));
  }
  if (report.moved) noteWhatIsLeft(session, report);
  session.problems(report.errors);
  return report.errors.empty() ? ExitStatus::done : ExitStatus::partly;
}

ExitStatus moveTo(Session& session, const std::filesystem::path& destination, bool dryRun) {
  SkillsEngine& engine = session.engine();
  if (dryRun) return showPlan(session, engine.planRelocation(destination));
  return showMoved(session, session.change([&](const OperationContext& context) {
    return engine.relocateLibrary(destination, context);
  }));
}

ExitStatus move(Session& session, const MoveOptions& options) {
  if (options.destination.empty()) throw SkillsError::invalidInput("Name the folder to move the library to.");
  return moveTo(session, standardized(options.destination), options.dryRun);
}

// The saved choice names a folder without a library: there is nothing to move, and opening it would make a new one.
ExitStatus forgetChoice(Session& session, bool dryRun) {
  const std::string lost = shortPath(session.paths().base(), session.user());
  if (session.paths() != Paths::resolveDefault(session.user(), std::nullopt)) {
    throw SkillsError::notFound(fmt::format("There is no library at {}.", lost));
  }
  if (dryRun && session.json()) {
    writeJsonArray(session.out().stream(), Plan{});
    return ExitStatus::done;
  }
  if (!dryRun) Paths::writeRepoPath(session.user(), std::nullopt);
  const Paths now(Paths::defaultBase(session.user()));
  if (session.json()) {
    writeJson(session.out().stream(),
              {{"path", fsPath(now.base())}, {"relocated", false}, {"relinked", 0}, {"errors", Json::array()}});
    return ExitStatus::done;
  }
  session.out().line(
      fmt::format("There is no library at {}, so nothing {} moved. The choice of that folder {} cleared: "
                  "the library is at {}{}.",
                  lost, dryRun ? "would be" : "was", dryRun ? "would be" : "is", shortPath(now.base(), session.user()),
                  dryRun ? " then" : " now"));
  return ExitStatus::done;
}

ExitStatus reset(Session& session, const ResetOptions& options) {
  const Paths& paths = session.settledPaths();
  const bool isLost = paths.isRelocated(session.user()) && FS::isCertainlyAbsent(paths.database());
  return isLost ? forgetChoice(session, options.dryRun)
                : moveTo(session, Paths::defaultBase(session.user()), options.dryRun);
}

}  // namespace

void setUpLibraryPath(CommandLine& line) {
  line.runs(path);
  line.example("orvanta library path", "The folder, for example to look into it");
}

void setUpLibraryMove(CommandLine& line) {
  MoveOptions& options = line.runs<MoveOptions>(move);
  line.argument("DIR", options.destination, "A folder that is empty or does not exist yet", Completes::files)
      .required();
  line.dryRunFlag(options.dryRun);
  line.example("orvanta library move ~/Sync/orvanta", "Keep the library in a folder that is synchronised");
  line.example("orvanta library move /mnt/disk/orvanta --dry-run", "What would move, and which links would change");
  line.explain(
      "Skills, records, logs and caches move together, also to another disk, and links in agents' folders lead to the "
      "new place; a deployed skill can be read all the time. Whatever interrupts the move, the library is whole at the "
      "old place or at the new one, and the next command finishes it or takes it back.");
  line.explain(
      "Links in agents' folders and in registered projects follow. The folder is "
      "remembered, unless --library or ORVANTA_HOME named the old one.");
}

void setUpLibraryReset(CommandLine& line) {
  ResetOptions& options = line.runs<ResetOptions>(reset);
  line.dryRunFlag(options.dryRun);
  line.example("orvanta library reset", "Move the library back to ~/.orvanta");
  line.explain(
      "Where the chosen folder holds no library any more, on a disk that is gone for instance, nothing is moved and "
      "the choice alone is cleared.");
}

}  // namespace orvanta::cli
