#pragma once

// The end of every command that brings skills into the library: deploying them at once, and saying what came of it.

#include <string>
#include <vector>

#include "cli/Session.h"
#include "engine/Reports.h"

namespace orvanta::cli {

// Deploys the installed skills to the agents, if any, and shows all of it.
ExitStatus deployInstalled(Session& session, const InstallReport& report, const std::vector<std::string>& agents,
                           const OperationContext& context);

}  // namespace orvanta::cli
