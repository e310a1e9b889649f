#pragma once

// What the verbs of the noun "preset" share.

#include <optional>
#include <string>

#include "cli/CommandLine.h"
#include "cli/Session.h"
#include "foundations/ModelsJSON.h"

namespace orvanta::cli {

Input& presetArgument(CommandLine& line, std::string& target);

// The preset that is applied at present.
std::optional<Preset> activePreset(SkillsEngine& engine);

// "12 of 20".
std::string deployedText(const PresetActivation& activation);

// The record with its "activation" and whether it "isActive".
Json presetAsJson(const Preset& preset, const PresetActivation& activation, bool isActive);

// What other results say of a preset: its "id" and "name".
Json presetReference(const Preset& preset);

// The preset after a change: JSON, or the sentence and, for the active preset, what is left to apply.
ExitStatus showPreset(Session& session, const std::string& id, const std::string& sentence);

}  // namespace orvanta::cli
