#pragma once

// One run of the program, from its words to its exit status.

#include <string>
#include <string_view>
#include <vector>

#include "cli/Terminal.h"

namespace orvanta::cli {

std::string_view version();

// Runs the command that the words ask for and returns the exit status. Never throws: what goes wrong is told on
// `streams.err`, as one JSON document where --json was asked for.
int run(const std::vector<std::string>& words, const Streams& streams);

}  // namespace orvanta::cli
