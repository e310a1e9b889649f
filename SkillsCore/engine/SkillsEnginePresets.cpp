// Presets, as the engine offers them.

#include "engine/PresetDemand.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

std::vector<Preset> SkillsEngine::presets() {
  const Turn turn(state_->mutex);
  return state_->library.store.presets();
}

Preset SkillsEngine::preset(const std::string& id) {
  const Turn turn(state_->mutex);
  return state_->components.presets.require(id);
}

Preset SkillsEngine::createPreset(const std::string& name, const std::optional<std::string>& description,
                                  const std::optional<std::string>& icon) {
  const State::ChangeTurn turn(*state_);
  return state_->components.presets.create(name, description, icon);
}

void SkillsEngine::updatePreset(const std::string& id, const std::string& name,
                                const std::optional<std::string>& description, const std::optional<std::string>& icon) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.update(id, name, description, icon);
}

void SkillsEngine::deletePreset(const std::string& id) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.erase(id);
}

void SkillsEngine::reorderPresets(const std::vector<std::string>& ids) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.reorder(ids);
}

Preset SkillsEngine::duplicatePreset(const std::string& id) {
  const State::ChangeTurn turn(*state_);
  return state_->components.presets.duplicate(id);
}

void SkillsEngine::setPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.setSkills(presetId, skillIds);
}

void SkillsEngine::addSkillsToPreset(const std::string& presetId, const std::vector<std::string>& skillIds) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.addSkills(presetId, skillIds);
}

void SkillsEngine::removeSkillFromPreset(const std::string& presetId, const std::string& skillId) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.removeSkill(presetId, skillId);
}

std::optional<Placement> SkillsEngine::setPresetSkillTool(const std::string& presetId, const std::string& skillId,
                                                          const std::string& tool, bool enabled) {
  const State::ChangeTurn turn(*state_);
  return state_->components.presetApplication.setSkillTool(presetId, skillId, tool, enabled);
}

std::vector<SkillToolPair> SkillsEngine::desiredPairs(const Preset& preset) {
  const Turn turn(state_->mutex);
  return PresetDemand(state_->library).desiredPairs(preset);
}

PresetActivation SkillsEngine::presetActivation(const Preset& preset) {
  const Turn turn(state_->mutex);
  return PresetDemand(state_->library).activation(preset);
}

std::map<std::string, PresetActivation> SkillsEngine::presetActivations() {
  const Turn turn(state_->mutex);
  const PresetDemand demand(state_->library);
  std::map<std::string, PresetActivation> activations;
  for (const auto& preset : state_->library.store.presets()) activations.emplace(preset.id, demand.activation(preset));
  return activations;
}

ApplyReport SkillsEngine::applyPreset(const std::string& id, bool exclusive, const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.presetApplication.apply(id, exclusive, context);
}

Plan SkillsEngine::planApplyPreset(const std::string& id, bool exclusive) {
  const Turn turn(state_->mutex);
  return state_->components.presetApplication.planApply(id, exclusive);
}

ApplyReport SkillsEngine::deactivatePreset(const std::string& id, const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  return state_->components.presetApplication.deactivate(id, context);
}

Plan SkillsEngine::planDeactivatePreset(const std::string& id) {
  const Turn turn(state_->mutex);
  return state_->components.presetApplication.planDeactivate(id);
}

std::optional<std::string> SkillsEngine::activePresetId() {
  const Turn turn(state_->mutex);
  return state_->library.store.activePresetId();
}

void SkillsEngine::setActivePreset(const std::optional<std::string>& id) {
  const State::ChangeTurn turn(*state_);
  state_->components.presets.setActive(id);
}

}  // namespace orvanta
