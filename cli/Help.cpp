#include "cli/Help.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kWidestText = 100;

struct Entry {
  std::string label;
  std::string text;
};

std::size_t textColumns(const Terminal& terminal) { return std::min(terminal.columns(), kWidestText); }

// Labels on the left, texts on the right; a label that is too long has its text on the next line.
void writeEntries(const Terminal& terminal, const std::vector<Entry>& entries, std::size_t widestLabel) {
  std::size_t width = 0;
  for (const Entry& entry : entries) {
    const std::size_t own = Text::displayWidth(entry.label);
    if (own <= widestLabel) width = std::max(width, own);
  }
  const std::size_t indent = width + 4;
  for (const Entry& entry : entries) {
    const std::size_t own = Text::displayWidth(entry.label);
    const std::string text = wrapped(entry.text, indent, textColumns(terminal));
    if (own > width) {
      terminal.line("  " + entry.label);
      terminal.line(text);
    } else {
      terminal.line("  " + entry.label + text.substr(std::min(text.size(), 2 + own)));
    }
  }
}

void writeHeading(const Terminal& terminal, std::string_view heading) {
  terminal.line("");
  terminal.line(terminal.styled(heading, Style::strong));
}

void writeOptions(const Terminal& terminal, std::string_view heading, const std::vector<const Input*>& options) {
  if (options.empty()) return;
  std::vector<Entry> entries;
  for (const Input* option : options) entries.push_back({option->label(), option->about});
  writeHeading(terminal, heading);
  writeEntries(terminal, entries, 28);
}

void writeCommands(const Terminal& terminal, const std::vector<const Command*>& commands) {
  std::vector<Entry> entries;
  for (const Command* command : commands) {
    entries.push_back({std::string(command->name), std::string(command->summary)});
  }
  writeEntries(terminal, entries, 28);
}

void writeVerbs(const Terminal& terminal, const Command& noun) {
  terminal.line(fmt::format("Usage: orvanta {} VERB …", noun.name));
  terminal.line("");
  terminal.line(fmt::format("{}.", noun.summary));
  writeHeading(terminal, "Verbs");
  writeCommands(terminal, verbsOf(noun.name));
  terminal.line("");
  terminal.line(fmt::format("'orvanta help {} VERB' explains one.", noun.name));
}

}  // namespace

std::string synopsis(const CommandLine& line) {
  std::string text = fmt::format("orvanta {}", line.command().name);
  if (!line.ownOptions().empty()) text += " [OPTIONS]";
  for (const Input* argument : line.arguments()) {
    const std::string label = argument->label();
    text += argument->isRequired ? " " + label : " [" + label + "]";
  }
  return text;
}

void writeOverview(const Terminal& terminal) {
  terminal.line("Orvanta keeps one library of agent skills and places them in the folders of AI agents.");
  terminal.line("");
  terminal.line("Usage: orvanta [OPTIONS] COMMAND …");
  writeHeading(terminal, "To begin with");
  writeEntries(terminal,
               {{"orvanta discover", "What the agents on this machine hold already"},
                {"orvanta install ~/my-skills --all", "Copy every skill below a folder into the library"},
                {"orvanta deploy pdf --to cursor", "Place the skill pdf in an agent's folder"}},
               36);
  std::string_view group;
  std::vector<const Command*> commands;
  const auto writeGroup = [&] {
    if (commands.empty()) return;
    writeHeading(terminal, group);
    writeCommands(terminal, commands);
    commands.clear();
  };
  for (const Command& command : allCommands()) {
    if (command.group != group) writeGroup();
    group = command.group;
    const bool isVerb = command.name.find(' ') != std::string_view::npos;
    if (!isVerb) commands.push_back(&command);
  }
  writeGroup();
  GlobalOptions globals;
  writeOptions(terminal, "Options of every command", CommandLine(*findCommand("help"), globals).globalOptions());
  terminal.line("");
  terminal.line("'orvanta help COMMAND' explains a command, with examples.");
}

void writeHelp(const Terminal& terminal, const Command& command) {
  if (command.setUp == nullptr) return writeVerbs(terminal, command);
  GlobalOptions globals;
  const CommandLine line(command, globals);
  terminal.line("Usage: " + synopsis(line));
  terminal.line("");
  terminal.line(fmt::format("{}.", command.summary));
  if (!line.examples().empty()) {
    writeHeading(terminal, line.examples().size() == 1 ? "Example" : "Examples");
    std::vector<Entry> entries;
    for (const Example& example : line.examples()) entries.push_back({example.line, example.says});
    writeEntries(terminal, entries, 46);
  }
  for (const std::string& paragraph : line.paragraphs()) {
    terminal.line("");
    terminal.line(wrapped(paragraph, 0, textColumns(terminal)));
  }
  writeOptions(terminal, "Arguments", line.arguments());
  writeOptions(terminal, "Options", line.ownOptions());
  if (const auto verbs = verbsOf(command.name); !verbs.empty()) {
    writeHeading(terminal, "Verbs");
    writeCommands(terminal, verbs);
  }
  terminal.line("");
  terminal.line("'orvanta help' lists the options that every command has.");
}

}  // namespace orvanta::cli
