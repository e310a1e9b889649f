#pragma once

// The help texts, made from the table of commands.

#include <string>

#include "cli/CommandLine.h"
#include "cli/Terminal.h"

namespace orvanta::cli {

// "orvanta deploy [OPTIONS] SKILL…"
std::string synopsis(const CommandLine& line);

// What Orvanta is, all commands, and the options that each has.
void writeOverview(const Terminal& terminal);

// One command; for a noun, its verbs.
void writeHelp(const Terminal& terminal, const Command& command);

}  // namespace orvanta::cli
