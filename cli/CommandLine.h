#pragma once

// What one command accepts, how it is explained, and what runs when it is asked for. A command's set-up function fills
// it; parsing, help, man page and completion read it.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/Session.h"

namespace CLI {
class App;
class Option;
class ParseError;
}  // namespace CLI

namespace orvanta::cli {

// What the words of an argument name, so that a shell can offer them.
enum class Completes { nothing, skills, agents, tags, presets, projects, files, commands };

// One argument or option of a command, as it was registered.
struct Input {
  std::string name = {};   // "SKILL", "--to", "-q,--quiet"
  std::string value = {};  // what follows an option: "AGENT"; empty for flags and arguments
  std::string about = {};
  Completes completes = Completes::nothing;
  bool isArgument = false;
  bool takesSeveral = false;  // all words that follow, up to the next option
  bool isRequired = false;
  std::vector<std::string> offered = {};  // values that a shell may offer
  CLI::Option* option = nullptr;

  // Refine the registration.
  Input& required();
  Input& excludes(const Input& other);
  Input& needs(const Input& other);
  Input& between(std::int64_t least, std::int64_t most);
  // Lets a shell offer these values; `oneOf` also refuses all others.
  Input& offers(std::vector<std::string> values);
  Input& oneOf(std::vector<std::string> values);

  [[nodiscard]] bool isFlag() const { return !isArgument && value.empty(); }
  [[nodiscard]] std::vector<std::string> names() const;
  // "--quiet" of "-q,--quiet".
  [[nodiscard]] std::string longName() const { return names().back(); }
  // As it is written in help: "--to AGENT…", "-q, --quiet", "SKILL…".
  [[nodiscard]] std::string label() const;
};

struct Example {
  std::string line;
  std::string says;
};

class CommandLine {
 public:
  // `globals` receives the options that every command has.
  CommandLine(const Command& command, GlobalOptions& globals);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // ── For set-up functions ──

  // What runs, and the options it is given.
  template <typename Options>
  Options& runs(ExitStatus (*action)(Session&, const Options&)) {
    auto options = std::make_shared<Options>();
    run_ = [action, options](Session& session) { return action(session, *options); };
    return *options;
  }
  void runs(ExitStatus (*action)(Session&)) { run_ = action; }

  // A positional argument. A list takes all words that are left; an optional text may be given empty.
  Input& argument(const std::string& name, std::string& target, const std::string& about,
                  Completes completes = Completes::nothing);
  Input& argument(const std::string& name, std::vector<std::string>& target, const std::string& about,
                  Completes completes = Completes::nothing);
  Input& argument(const std::string& name, std::optional<std::string>& target, const std::string& about,
                  Completes completes = Completes::nothing);
  // An option with a value, called `value` in the help.
  Input& option(const std::string& name, std::string& target, const std::string& value, const std::string& about,
                Completes completes = Completes::nothing);
  Input& option(const std::string& name, std::optional<std::string>& target, const std::string& value,
                const std::string& about);
  Input& option(const std::string& name, std::vector<std::string>& target, const std::string& value,
                const std::string& about, Completes completes = Completes::nothing);
  Input& option(const std::string& name, std::int64_t& target, const std::string& value, const std::string& about);
  Input& flag(const std::string& name, bool& target, const std::string& about);
  void dryRunFlag(bool& target) { flag("--dry-run", target, "Show what would be done, and change nothing"); }

  void example(std::string line, std::string says) { examples_.push_back({std::move(line), std::move(says)}); }
  // A paragraph for the help.
  void explain(std::string paragraph) { paragraphs_.push_back(std::move(paragraph)); }

  // ── For the program ──

  enum class Parsed { ready, wantsHelp, wantsVersion };

  // Throws `UsageError` for words that the command does not accept.
  Parsed parse(const std::vector<std::string>& words);
  ExitStatus run(Session& session) const { return run_(session); }

  [[nodiscard]] const Command& command() const { return *command_; }
  [[nodiscard]] const std::vector<Example>& examples() const { return examples_; }
  [[nodiscard]] const std::vector<std::string>& paragraphs() const { return paragraphs_; }
  [[nodiscard]] std::vector<const Input*> arguments() const;
  [[nodiscard]] std::vector<const Input*> ownOptions() const;
  [[nodiscard]] std::vector<const Input*> globalOptions() const;
  // The option called so ("--to", "-q"); none when there is no such option.
  [[nodiscard]] const Input* optionCalled(const std::string& name) const;

 private:
  Input& remember(Input input);
  void addGlobalOptions(GlobalOptions& globals);
  [[nodiscard]] std::string explanationOf(const CLI::ParseError& error) const;
  [[nodiscard]] std::string unexpectedWord() const;

  const Command* command_;
  std::unique_ptr<CLI::App> app_;
  std::deque<Input> inputs_;  // the first `globalCount_` are those of every command
  std::size_t globalCount_ = 0;
  std::function<ExitStatus(Session&)> run_;
  std::vector<Example> examples_;
  std::vector<std::string> paragraphs_;
};

// The command that the words name, and the words that remain for it. Global options may stand before and between the
// words of the name.
struct Invocation {
  std::string name;                  // as far as it was recognised; empty when no word was
  const Command* command = nullptr;  // none when `name` is empty
  std::vector<std::string> rest;
  std::string next;  // the first of the rest that is no option; not a command where one is missing
};
Invocation invocationOf(const std::vector<std::string>& words);

// The value of a global option in words that may not be a valid command line; empty where it is not given.
std::string valueOfGlobal(const std::string& option, const std::vector<std::string>& words);

// Throws `UsageError`, with the command that was probably meant.
[[noreturn]] void throwUnknownCommand(const std::string& typed);

}  // namespace orvanta::cli
