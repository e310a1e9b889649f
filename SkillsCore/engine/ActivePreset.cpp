#include "engine/ActivePreset.h"

namespace orvanta {

ActivePreset::ActivePreset(Library& library) : library_(library) {
  const auto id = library.store.activePresetId();
  if (id) preset_ = library.store.preset(*id);
  if (preset_) members_.insert(preset_->skillIds.begin(), preset_->skillIds.end());
}

void ActivePreset::setActivePresetToggle(const std::string& skillId, const std::string& tool, bool enabled) {
  if (!members_.contains(skillId)) return;
  const auto skill = preset_->toolToggles.find(skillId);
  const bool isNoted = skill != preset_->toolToggles.end() && skill->second.contains(tool);
  if (isNoted && preset_->isToolEnabled(skillId, tool) == enabled) return;
  library_.store.setPresetSkillTool(preset_->id, skillId, tool, enabled);
}

}  // namespace orvanta
