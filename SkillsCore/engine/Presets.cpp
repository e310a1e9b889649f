#include "engine/Presets.h"

#include <set>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

std::optional<std::string> unlessEmpty(const std::optional<std::string>& text) {
  return text && text->empty() ? std::nullopt : text;
}

// Texts go into JSON and onto terminals.
void requireText(const std::optional<std::string>& text, const char* what) {
  if (Text::isValidUTF8(text.value_or(""))) return;
  throw SkillsError::invalidInput(std::string("The preset's ") + what + " must be valid UTF-8");
}

}  // namespace

Preset Presets::require(const std::string& id) {
  auto preset = library_.store.preset(id);
  if (!preset) throw SkillsError::notFound("Preset not found");
  return *std::move(preset);
}

Preset Presets::create(const std::string& name, const std::optional<std::string>& description,
                       const std::optional<std::string>& icon) {
  const std::string usable = requireUsableName(name, std::nullopt);
  requireText(description, "description");
  requireText(icon, "icon");
  Preset preset = library_.store.createPreset(usable, unlessEmpty(description), unlessEmpty(icon));
  log("create_preset", usable);
  return preset;
}

void Presets::update(const std::string& id, const std::string& name, const std::optional<std::string>& description,
                     const std::optional<std::string>& icon) {
  const std::string usable = requireUsableName(name, id);
  requireText(description, "description");
  requireText(icon, "icon");
  library_.store.updatePreset(id, usable, unlessEmpty(description), unlessEmpty(icon));
  log("update_preset", usable);
}

void Presets::erase(const std::string& id) {
  const auto preset = library_.store.preset(id);
  library_.transaction([&] {
    if (library_.store.activePresetId() == id) library_.store.setActivePresetId(std::nullopt);
    library_.store.deletePreset(id);
  });
  log("delete_preset", preset ? preset->name : "");
}

void Presets::reorder(const std::vector<std::string>& ids) {
  library_.store.reorderPresets(ids);
  library_.store.logAudit({.action = "reorder_presets"});
}

Preset Presets::duplicate(const std::string& id) {
  const Preset source = require(id);
  std::set<std::string> taken;
  for (const auto& preset : library_.store.presets()) taken.insert(Text::comparisonKey(preset.name));
  std::string name = source.name + " copy";
  for (int number = 2; taken.contains(Text::comparisonKey(name)); ++number) {
    name = source.name + " copy " + std::to_string(number);
  }
  const Preset copy = library_.store.copyPreset(source, name);
  log("create_preset", name);
  return require(copy.id);
}

void Presets::setSkills(const std::string& id, const std::vector<std::string>& skillIds) {
  const Preset preset = require(id);
  requireSkills(skillIds);
  library_.store.setPresetSkills(id, skillIds);
  log("set_preset_skills", preset.name);
}

void Presets::addSkills(const std::string& id, const std::vector<std::string>& skillIds) {
  const Preset preset = require(id);
  requireSkills(skillIds);
  library_.store.addPresetSkills(id, skillIds);
  log("set_preset_skills", preset.name);
}

void Presets::removeSkill(const std::string& id, const std::string& skillId) {
  const Preset preset = require(id);
  library_.store.removePresetSkill(id, skillId);
  log("set_preset_skills", preset.name);
}

void Presets::setActive(const std::optional<std::string>& id) {
  const std::string name = id ? require(*id).name : "";
  library_.store.setActivePresetId(id);
  log("set_active_preset", name);
}

std::string Presets::requireUsableName(const std::string& name, const std::optional<std::string>& ownId) {
  std::string trimmed(Text::trim(name));
  if (trimmed.empty()) throw SkillsError::invalidInput("Preset name is required");
  requireText(trimmed, "name");
  const std::string key = Text::comparisonKey(trimmed);
  for (const auto& preset : library_.store.presets()) {
    if (preset.id == ownId || Text::comparisonKey(preset.name) != key) continue;
    throw SkillsError::conflict("A preset named '" + trimmed + "' already exists");
  }
  return trimmed;
}

void Presets::requireSkills(const std::vector<std::string>& skillIds) {
  const auto known = library_.store.skillIds();
  for (const auto& id : skillIds) {
    if (!known.contains(id)) throw SkillsError::notFound("Skill not found: " + id);
  }
}

void Presets::log(const std::string& action, const std::string& presetName) {
  library_.store.logAudit({.action = action, .skillName = presetName});
}

}  // namespace orvanta
