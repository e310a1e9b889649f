#pragma once

// Reading a secret from whoever types it, or from whatever is piped in.

#include <optional>
#include <string>

#include "cli/Session.h"

namespace orvanta::cli {

// One line, which the terminal does not show while it is typed; without a terminal the first line of standard input.
// Nothing at the end of input. Ctrl-C ends the program as always, and Ctrl-Z stops it, with the terminal as it was;
// once it goes on, it asks again. Throws `io` when the terminal cannot be kept from showing it, and as
// `Session::readLine`.
std::optional<std::string> askSecret(const Session& session, std::string_view question);

}  // namespace orvanta::cli
