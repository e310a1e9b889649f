#include "cli/CommandLine.h"
#include "cli/Completion.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string shell;
};

ExitStatus run(Session& session, const Options& options) {
  session.out().stream() << completionScript(options.shell);
  return ExitStatus::done;
}

}  // namespace

void setUpCompletion(CommandLine& line) {
  Options& options = line.runs<Options>(run);
  line.argument("SHELL", options.shell, "bash, zsh or fish").required().oneOf({"bash", "zsh", "fish"});
  line.example("source <(orvanta completion bash)", "Complete in this shell; in ~/.bashrc: in every one");
  line.example("orvanta completion fish > ~/.config/fish/completions/orvanta.fish", "The same for fish");
  line.explain("Commands, options, skills, agents and tags are completed from what the program and the library hold.");
}

}  // namespace orvanta::cli
