#include "engine/PresetDemand.h"

#include "agents/ToolAdapters.h"

namespace orvanta {

PresetDemand::PresetDemand(Library& library) {
  for (auto& adapter : ToolAdapters::active(library.store.toolOverrides(), library.user)) {
    if (positions_.emplace(adapter.key, agents_.size()).second) agents_.push_back(std::move(adapter.key));
  }
  for (auto& id : library.store.enabledSkillIds()) {
    enabledSkills_.emplace(std::move(id), Holders{std::vector<bool>(agents_.size()), 0});
  }
  library.store.forEachDeployedPair([&](std::string_view skillId, std::string_view tool) {
    const auto skill = enabledSkills_.find(skillId);
    const auto agent = positions_.find(tool);
    if (skill == enabledSkills_.end() || agent == positions_.end()) return;
    skill->second.isHolder[agent->second] = true;
    ++skill->second.count;
  });
}

std::vector<SkillToolPair> PresetDemand::desiredPairs(const Preset& preset) const {
  std::vector<SkillToolPair> pairs;
  for (const auto& skillId : preset.skillIds) {
    if (!enabledSkills_.contains(skillId)) continue;
    for (const auto& agent : agents_) {
      if (preset.isToolEnabled(skillId, agent)) pairs.push_back({skillId, agent});
    }
  }
  return pairs;
}

// Counts whole skills and takes off what is switched off, which is little: there can be millions of pairs.
PresetActivation PresetDemand::activation(const Preset& preset) const {
  PresetActivation activation;
  for (const auto& skillId : preset.skillIds) {
    const auto skill = enabledSkills_.find(skillId);
    if (skill == enabledSkills_.end()) continue;
    const Holders& holders = skill->second;
    activation.total += static_cast<std::int64_t>(agents_.size());
    activation.active += holders.count;
    const auto toggles = preset.toolToggles.find(skillId);
    if (toggles == preset.toolToggles.end()) continue;
    for (const auto& [tool, isWanted] : toggles->second) {
      const auto agent = positions_.find(tool);
      if (isWanted || agent == positions_.end()) continue;
      --activation.total;
      if (holders.isHolder[agent->second]) --activation.active;
    }
  }
  return activation;
}

}  // namespace orvanta
