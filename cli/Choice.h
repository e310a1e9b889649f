#pragma once

// Choosing some of a numbered list on a terminal.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Session.h"

namespace orvanta::cli {

// The positions, from 0, that an answer such as "1 3-5" or "all" picks of `count` things; each once, in order. Nothing
// for an answer that cannot be understood.
std::optional<std::vector<std::size_t>> parseChoice(std::string_view answer, std::size_t count);

// Shows the list and asks until the answer can be understood. Throws `refused` for an empty answer.
std::vector<std::size_t> choose(const Session& session, const std::vector<std::string>& items,
                                std::string_view question);

// The same for what a source holds: "'acme/skills' holds 3 skills." Where nobody can be asked it throws a `UsageError`
// that says so, and which options decide it.
std::vector<std::size_t> chooseSome(const Session& session, const std::string& source,
                                    const std::vector<std::string>& skills);

}  // namespace orvanta::cli
