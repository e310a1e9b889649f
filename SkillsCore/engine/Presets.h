#pragma once

// Named sets of skills: their names, members and switches. What follows from them in agents' folders is the matter of
// PresetApplication.

#include <optional>
#include <string>
#include <vector>

#include "engine/Library.h"

namespace orvanta {

class Presets {
 public:
  explicit Presets(Library& library) : library_(library) {}

  // Throws `notFound`.
  Preset require(const std::string& id);

  // Both throw `invalidInput` or `conflict` for a name that cannot be given.
  Preset create(const std::string& name, const std::optional<std::string>& description,
                const std::optional<std::string>& icon);
  void update(const std::string& id, const std::string& name, const std::optional<std::string>& description,
              const std::optional<std::string>& icon);
  void erase(const std::string& id);
  void reorder(const std::vector<std::string>& ids);
  Preset duplicate(const std::string& id);

  // All three throw `notFound` for a preset or a skill that does not exist.
  void setSkills(const std::string& id, const std::vector<std::string>& skillIds);
  void addSkills(const std::string& id, const std::vector<std::string>& skillIds);
  void removeSkill(const std::string& id, const std::string& skillId);

  // Makes the preset the active one, or none; throws `notFound`.
  void setActive(const std::optional<std::string>& id);

 private:
  std::string requireUsableName(const std::string& name, const std::optional<std::string>& ownId);
  void requireSkills(const std::vector<std::string>& skillIds);
  void log(const std::string& action, const std::string& presetName);

  Library& library_;
};

}  // namespace orvanta
