#pragma once

// The end of every command that brings skills into the library: what is done with them at once, and saying what came of
// it.

#include <optional>
#include <string>
#include <vector>

#include "cli/Session.h"
#include "engine/Reports.h"

namespace orvanta::cli {

// Where installed skills go.
struct Destinations {
  std::vector<std::string> agents = {};
  std::optional<Preset> preset = {};
};

// Adds the installed skills to the preset and deploys them to the agents, if any, and shows all of it.
ExitStatus showInstalled(Session& session, InstallReport report, const Destinations& destinations,
                         const OperationContext& context);

}  // namespace orvanta::cli
