#pragma once

// Skills of the community directory as sources: "plazza:OWNER/REPO/SKILL".

#include <optional>
#include <string>

#include "cli/commands/InstallSource.h"
#include "engine/SkillsEngine.h"

namespace orvanta::cli {

// Whether the word is meant to name a listed skill, well-formed or not.
bool namesListedSkill(const std::string& word);

// Throws `UsageError` for a word that is not well-formed.
InstallSource listedSkill(SkillsEngine& engine, const std::string& word, const std::optional<std::string>& name);

}  // namespace orvanta::cli
