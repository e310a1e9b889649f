#include "cli/CommandLine.h"
#include "cli/Help.h"
#include "cli/Names.h"
#include "cli/UsageError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::vector<std::string> words;
};

ExitStatus run(Session& session, const Options& options) {
  if (options.words.empty()) {
    writeOverview(session.out());
    return ExitStatus::done;
  }
  const std::string name = Text::join(options.words, " ");
  const Command* command = findCommand(name);
  if (command == nullptr) throwUnknownCommand(name);
  writeHelp(session.out(), *command);
  return ExitStatus::done;
}

}  // namespace

void setUpHelp(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("COMMAND", options.words, "The command, with its verb where it has one", Completes::commands);
  line.example("orvanta help deploy", "How to deploy");
  line.example("orvanta help tag", "What there is for tags");
}

}  // namespace orvanta::cli
