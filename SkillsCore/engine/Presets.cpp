#include "engine/Presets.h"

#include <algorithm>

namespace orvanta {

std::optional<Preset> Presets::activePreset() {
  const auto id =
      library_.store.connection().scalarString("SELECT scenario_id FROM active_scenario WHERE key = 'current'");
  return id ? library_.store.preset(*id) : std::nullopt;
}

void Presets::setActivePresetToggle(const std::optional<Preset>& active, const std::string& skillId,
                                    const std::string& tool, bool enabled) {
  if (!active) return;
  const auto& members = active->skillIds;
  if (std::find(members.begin(), members.end(), skillId) == members.end()) return;
  const auto skill = active->toolToggles.find(skillId);
  const bool isNoted = skill != active->toolToggles.end() && skill->second.contains(tool);
  if (isNoted && active->isToolEnabled(skillId, tool) == enabled) return;
  library_.store.setPresetSkillTool(active->id, skillId, tool, enabled);
}

}  // namespace orvanta
