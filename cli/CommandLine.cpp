#include "cli/CommandLine.h"

#include <algorithm>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "cli/Names.h"
#include "cli/UsageError.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

bool isGlobalWithValue(const std::string& word) { return word == "--library" || word == "--color"; }

bool isOption(const std::string& word) { return word.size() > 1 && word.front() == '-'; }

std::string asSentence(std::string text) {
  while (text.ends_with('\n')) text.pop_back();
  return text.ends_with('.') || text.ends_with('?') ? text : text + ".";
}

}  // namespace

Input& Input::required() {
  isRequired = true;
  option->required();
  return *this;
}

Input& Input::excludes(const Input& other) {
  option->excludes(other.option);
  return *this;
}

Input& Input::needs(const Input& other) {
  option->needs(other.option);
  return *this;
}

Input& Input::between(std::int64_t least, std::int64_t most) {
  option->check(
      [least, most](const std::string& word) -> std::string {
        std::int64_t number = 0;
        if (CLI::detail::lexical_cast(word, number) && number >= least && number <= most) return {};
        return fmt::format("'{}' is no number from {} to {}", word, least, most);
      },
      "");
  return *this;
}

Input& Input::offers(std::vector<std::string> values) {
  offered = std::move(values);
  return *this;
}

Input& Input::oneOf(std::vector<std::string> values) {
  option->check(
      [values](const std::string& word) -> std::string {
        if (std::find(values.begin(), values.end(), word) != values.end()) return {};
        return fmt::format("'{}' is not one of {}", word, Text::join(values, ", "));
      },
      "");
  return offers(std::move(values));
}

std::vector<std::string> Input::names() const {
  std::vector<std::string> each;
  for (const std::string_view part : Text::split(name, ',')) each.emplace_back(part);
  return each;
}

std::string Input::label() const {
  const std::string more = takesSeveral ? "…" : "";
  return Text::join(names(), ", ") + (value.empty() ? "" : " " + value) + more;
}

CommandLine::CommandLine(const Command& command, GlobalOptions& globals)
    : command_(&command), app_(std::make_unique<CLI::App>()) {
  app_->set_help_flag();
  addGlobalOptions(globals);
  globalCount_ = inputs_.size();
  if (command.setUp != nullptr) command.setUp(*this);
}

CommandLine::~CommandLine() = default;

void CommandLine::addGlobalOptions(GlobalOptions& globals) {
  option("--library", globals.library, "DIR", "Use the library in DIR, as the variable ORVANTA_HOME does",
         Completes::files);
  flag("--json", globals.json, "Write the result as one JSON document");
  flag("-q,--quiet", globals.quiet, "No notes and no progress, only results and errors");
  flag("-v,--verbose", globals.verbose, "Say which library was used and how long it took");
  flag("-y,--yes", globals.yes, "Agree to every question beforehand");
  option("--color", globals.color, "WHEN", "Colours: auto, always or never").oneOf({"auto", "always", "never"});
  flag("-h,--help", globals.help, "Show the help of the command");
  flag("--version", globals.version, "Show the version");
}

Input& CommandLine::argument(const std::string& name, std::string& target, const std::string& about,
                             Completes completes) {
  return remember({.name = name,
                   .about = about,
                   .completes = completes,
                   .isArgument = true,
                   .option = app_->add_option(name, target)});
}

Input& CommandLine::argument(const std::string& name, std::vector<std::string>& target, const std::string& about,
                             Completes completes) {
  return remember({.name = name,
                   .about = about,
                   .completes = completes,
                   .isArgument = true,
                   .takesSeveral = true,
                   .option = app_->add_option(name, target)});
}

Input& CommandLine::argument(const std::string& name, std::optional<std::string>& target, const std::string& about,
                             Completes completes) {
  const auto store = [&target](const std::string& text) { target = text; };
  return remember({.name = name,
                   .about = about,
                   .completes = completes,
                   .isArgument = true,
                   .option = app_->add_option_function<std::string>(name, store)});
}

Input& CommandLine::option(const std::string& name, std::string& target, const std::string& value,
                           const std::string& about, Completes completes) {
  return remember(
      {.name = name, .value = value, .about = about, .completes = completes, .option = app_->add_option(name, target)});
}

Input& CommandLine::option(const std::string& name, std::optional<std::string>& target, const std::string& value,
                           const std::string& about) {
  const auto store = [&target](const std::string& text) { target = text; };
  return remember(
      {.name = name, .value = value, .about = about, .option = app_->add_option_function<std::string>(name, store)});
}

Input& CommandLine::option(const std::string& name, std::vector<std::string>& target, const std::string& value,
                           const std::string& about, Completes completes) {
  return remember({.name = name,
                   .value = value,
                   .about = about,
                   .completes = completes,
                   .takesSeveral = true,
                   .option = app_->add_option(name, target)});
}

Input& CommandLine::option(const std::string& name, std::int64_t& target, const std::string& value,
                           const std::string& about) {
  return remember({.name = name, .value = value, .about = about, .option = app_->add_option(name, target)});
}

Input& CommandLine::flag(const std::string& name, bool& target, const std::string& about) {
  return remember({.name = name, .about = about, .option = app_->add_flag(name, target)});
}

Input& CommandLine::remember(Input input) {
  input.option->type_name(input.value);
  return inputs_.emplace_back(std::move(input));
}

CommandLine::Parsed CommandLine::parse(const std::vector<std::string>& words) {
  const auto end = std::find(words.begin(), words.end(), "--");
  const auto isThere = [&](const char* word) { return std::find(words.begin(), end, word) != end; };
  // Whoever asks for help may have typed a line that is incomplete.
  if (isThere("--help") || isThere("-h")) return Parsed::wantsHelp;
  if (isThere("--version")) return Parsed::wantsVersion;
  try {
    app_->parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& error) {
    throw UsageError(Text::singleLine(
        fmt::format("{} 'orvanta help {}' explains the command.", asSentence(explanationOf(error)), command_->name)));
  }
  return Parsed::ready;
}

std::string CommandLine::explanationOf(const CLI::ParseError& error) const {
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) return unexpectedWord();
  const std::string text = error.what();
  const Input* input = optionCalled(text.substr(0, text.find(':')));
  const bool isIncomplete = dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr && input != nullptr;
  return isIncomplete ? fmt::format("'{}' is incomplete: {} is missing", input->label(), input->value) : text;
}

std::string CommandLine::unexpectedWord() const {
  const auto remaining = app_->remaining();
  const std::string word = remaining.empty() ? "" : remaining.front();
  if (!isOption(word)) return fmt::format("'{}' is one word too many", word);
  std::vector<std::string> names;
  for (const Input& input : inputs_) {
    if (!input.isArgument) names.push_back(input.longName());
  }
  const std::string near = nearestName(word.substr(0, word.find('=')), names);
  return fmt::format("There is no option '{}'", word) + (near.empty() ? "" : fmt::format("; did you mean '{}'?", near));
}

std::vector<const Input*> CommandLine::arguments() const {
  std::vector<const Input*> arguments;
  for (const Input& input : inputs_) {
    if (input.isArgument) arguments.push_back(&input);
  }
  return arguments;
}

std::vector<const Input*> CommandLine::ownOptions() const {
  std::vector<const Input*> options;
  for (std::size_t i = globalCount_; i < inputs_.size(); ++i) {
    if (!inputs_[i].isArgument) options.push_back(&inputs_[i]);
  }
  return options;
}

std::vector<const Input*> CommandLine::globalOptions() const {
  std::vector<const Input*> options;
  for (std::size_t i = 0; i < globalCount_; ++i) options.push_back(&inputs_[i]);
  return options;
}

const Input* CommandLine::optionCalled(const std::string& name) const {
  for (const Input& input : inputs_) {
    const auto names = input.names();
    if (!input.isArgument && std::find(names.begin(), names.end(), name) != names.end()) return &input;
  }
  return nullptr;
}

Invocation invocationOf(const std::vector<std::string>& words) {
  Invocation invocation;
  std::size_t next = 0;
  for (; next < words.size() && words[next] != "--"; ++next) {
    const std::string& word = words[next];
    if (isOption(word)) {
      invocation.rest.push_back(word);
      if (isGlobalWithValue(word) && next + 1 < words.size()) invocation.rest.push_back(words[++next]);
      continue;
    }
    const std::string name = invocation.name.empty() ? word : invocation.name + " " + word;
    const Command* command = findCommand(name);
    if (command == nullptr) {
      invocation.next = word;
      break;
    }
    invocation.name = name;
    invocation.command = command;
  }
  invocation.rest.insert(invocation.rest.end(), words.begin() + static_cast<std::ptrdiff_t>(next), words.end());
  return invocation;
}

std::string valueOfGlobal(const std::string& option, const std::vector<std::string>& words) {
  for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
    if (words[i].starts_with(option + "=")) return words[i].substr(option.size() + 1);
    if (words[i] == option && i + 1 < words.size()) return words[i + 1];
  }
  return "";
}

void throwUnknownCommand(const std::string& typed) {
  std::vector<std::string> names;
  for (const Command& command : allCommands()) names.emplace_back(command.name);
  const std::string near = nearestName(typed, names);
  throw UsageError(Text::singleLine(fmt::format("There is no command '{}'.{} 'orvanta help' lists all.", typed,
                                                near.empty() ? "" : fmt::format(" Did you mean '{}'?", near))));
}

}  // namespace orvanta::cli
