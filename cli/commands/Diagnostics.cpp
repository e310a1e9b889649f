#include "cli/CommandLine.h"
#include "cli/Output.h"

namespace orvanta::cli {

namespace {

ExitStatus run(Session& session) {
  const auto file =
      session.change([&](const OperationContext& context) { return session.engine().exportDiagnostics(context); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"path", file.string()}});
  } else {
    session.out().line(file.string());
  }
  session.note("Read it before you pass it on: it names your skills, agents and folders.");
  return ExitStatus::done;
}

}  // namespace

void setUpDiagnostics(CommandLine& line) {
  line.runs(run);
  line.example("orvanta diagnostics", "Write the report, and say where");
  line.explain(
      "The report says which system and which git this is, what the library holds, which agents were found and what "
      "was done lately. There is no token in it, and no password of an address. Read it before you pass it on.");
}

}  // namespace orvanta::cli
