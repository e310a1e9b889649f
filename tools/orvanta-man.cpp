// Prints the manual page of `orvanta`, made from its table of commands.

#include <iostream>
#include <string>
#include <string_view>

#include "cli/Application.h"
#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/Help.h"

namespace orvanta::cli {

namespace {

// Text for roff: what it would take as commands of its own is escaped.
std::string escaped(std::string_view text) {
  std::string roff;
  for (const char c : text) {
    if (c == '\\') {
      roff += "\\e";
    } else if (c == '-') {
      roff += "\\-";
    } else if (c == '\'') {
      roff += "\\(aq";
    } else if (c == '~') {
      roff += "\\(ti";
    } else {
      roff += c;
    }
  }
  for (std::size_t at = roff.find("…"); at != std::string::npos; at = roff.find("…", at)) {
    roff.replace(at, std::string_view("…").size(), "...");
  }
  return roff.starts_with('.') ? "\\&" + roff : roff;
}

void heading(std::string_view title) { std::cout << ".SH " << title << '\n'; }

void paragraph(std::string_view text) { std::cout << ".PP\n" << escaped(text) << '\n'; }

void entry(std::string_view term, std::string_view text) {
  std::cout << ".TP\n.B " << escaped(term) << '\n' << escaped(text) << '\n';
}

void options(const std::vector<const Input*>& inputs) {
  for (const Input* input : inputs) entry(input->label(), input->about + ".");
}

void example(const Example& example) {
  std::cout << ".TP\n.B " << escaped(example.line) << '\n' << escaped(example.says) << ".\n";
}

void command(const CommandLine& line) {
  std::cout << ".SS \"" << escaped(synopsis(line)) << "\"\n" << escaped(line.command().summary) << ".\n";
  for (const std::string& text : line.paragraphs()) paragraph(text);
  options(line.arguments());
  options(line.ownOptions());
  std::cout << ".PP\nFor example:\n";
  for (const Example& each : line.examples()) example(each);
}

// Of the last change to the texts that stand in this file; a date of the build would make each build different.
constexpr std::string_view pageDate = "2026-11-21";

void opening() {
  std::cout << ".TH ORVANTA 1 \"" << pageDate << "\" \"orvanta " << version() << "\" \"User Commands\"\n";
  heading("NAME");
  std::cout << "orvanta \\- one library of agent skills, deployed to every agent\n";
  heading("SYNOPSIS");
  std::cout << ".B orvanta\n[\\fIOPTIONS\\fR]\n[\\fICOMMAND\\fR [\\fIARGUMENTS\\fR]]\n";
  heading("DESCRIPTION");
  std::cout << "Orvanta keeps one central library of agent skills (folders with a SKILL.md) and places them, as links "
               "or as copies, in the folders where AI agents look for skills.\n"
               "Without a command it shows the library's status.\n";
  paragraph(
      "Results go to standard output; progress, notes, questions and errors go to standard error. On a terminal, "
      "commands that destroy or replace something ask first; elsewhere they need --yes.");
  paragraph(
      "A skill is named by its name, its id, or at least four characters of its id; an agent by its key or its "
      "name. Letter case does not matter.");
}

void closing() {
  heading("EXIT STATUS");
  entry("0", "All of it was done.");
  entry("1", "It failed.");
  entry("2", "The command line was wrong or incomplete; nothing was tried.");
  entry("3", "A command over many items did part of it and reported the rest.");
  entry("130", "Stopped with Ctrl-C. What was done by then is complete and recorded.");
  heading("ENVIRONMENT");
  entry("ORVANTA_HOME", "The folder of the library to use.");
  entry("NO_COLOR", "No colours, when set.");
  entry("CLICOLOR_FORCE", "Colours also where the output is no terminal, when set and not 0.");
  heading("FILES");
  entry("~/.orvanta", "The library: skills, the database orvanta.db, logs.");
  entry("~/.config/orvanta/repo-config.json", "Where the library is, when it was moved.");
  heading("EXAMPLES");
  example({"orvanta discover", "What the agents on this machine hold already"});
  example({"orvanta import --discovered --all --adopt", "Let the library manage all of it"});
  example({"orvanta install ~/my-skills --all --to cursor", "Install every skill below a folder and deploy it"});
  example({"orvanta list --json | jq -r '.[].record.name'", "The names of all skills, for a script"});
}

void page() {
  opening();
  heading("OPTIONS");
  std::cout << "These may stand before and after the command.\n";
  GlobalOptions globals;
  options(CommandLine(*findCommand("help"), globals).globalOptions());
  heading("COMMANDS");
  for (const Command& each : allCommands()) {
    if (each.setUp != nullptr) command(CommandLine(each, globals));
  }
  closing();
}

}  // namespace

}  // namespace orvanta::cli

int main() {
  orvanta::cli::page();
  return std::cout.flush().good() ? 0 : 1;
}
