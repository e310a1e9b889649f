#pragma once

// What the verbs of the noun "agent" share.

#include <string>

#include "cli/Session.h"

namespace orvanta::cli {

ToolInfo toolInfo(SkillsEngine& engine, const std::string& key);

// The agent after a change: JSON, or its name and what became of it.
ExitStatus showTool(Session& session, const std::string& key, const std::string& change);

}  // namespace orvanta::cli
