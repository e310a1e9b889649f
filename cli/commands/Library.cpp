#include "cli/CommandLine.h"
#include "cli/Output.h"

namespace orvanta::cli {

namespace {

ExitStatus path(Session& session) {
  const Paths& paths = session.paths();
  if (session.json()) {
    writeJson(session.out().stream(),
              {{"path", fsPath(paths.base())}, {"relocated", paths.isRelocated(session.user())}});
  } else {
    session.out().line(fsPath(paths.base()));
  }
  return ExitStatus::done;
}

}  // namespace

void setUpLibraryPath(CommandLine& line) {
  line.runs(path);
  line.example("orvanta library path", "The folder, for example to look into it");
}

}  // namespace orvanta::cli
