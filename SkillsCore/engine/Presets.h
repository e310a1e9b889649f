#pragma once

// Keeps the active preset in step with what the user deploys and undeploys by hand.

#include <optional>
#include <string>

#include "engine/Library.h"

namespace orvanta {

class Presets {
 public:
  explicit Presets(Library& library) : library_(library) {}

  // The preset that was applied last and is still in force.
  std::optional<Preset> activePreset();

  // Notes in the active preset, when it has the skill, that the agent is wanted or not. Writes nothing otherwise, or
  // when that is noted already. `active` is what `activePreset` gave, read once for many pairs.
  void setActivePresetToggle(const std::optional<Preset>& active, const std::string& skillId, const std::string& tool,
                             bool enabled);

 private:
  Library& library_;
};

}  // namespace orvanta
