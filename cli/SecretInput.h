#pragma once

// Reading a secret from whoever types it, or from whatever is piped in.

#include <optional>
#include <string>

#include "cli/Session.h"

namespace orvanta::cli {

// One line, which the terminal does not show while it is typed; without a terminal the first line of standard input.
// Nothing at the end of input. Ctrl-C ends the program as always, with the terminal as it was.
std::optional<std::string> askSecret(const Session& session, std::string_view question);

}  // namespace orvanta::cli
