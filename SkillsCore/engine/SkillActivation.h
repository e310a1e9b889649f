#pragma once

// Taking skills out of use and back, and out of the library: what touches all agents' folders of a skill at once.

#include <string>
#include <vector>

#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

class SkillActivation {
 public:
  SkillActivation(Library& library, Skills& skills) : library_(library), skills_(skills) {}

  // Disabling takes the skill's files out of all agents' folders and keeps the records with status "disabled"; enabling
  // places them again. Throws `refused` when something else stands at one of the places; then nothing has changed.
  void setEnabled(const std::string& id, bool enabled);
  Plan planSetEnabled(const std::string& id, bool enabled);

  // Throws what prevents the removal; then the skill is as it was.
  void remove(const std::string& id, bool deleteFiles);
  RemovalReport remove(const std::vector<std::string>& ids, bool deleteFiles, const OperationContext& context);
  Plan planRemove(const std::vector<std::string>& ids, bool deleteFiles);

 private:
  void enable(const SkillRecord& skill);
  void disable(const SkillRecord& skill);

  Library& library_;
  Skills& skills_;
};

}  // namespace orvanta
