#pragma once

// Removing skills from the library and from every agent.

#include <string>
#include <vector>

#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

class SkillRemoval {
 public:
  SkillRemoval(Library& library, Skills& skills) : library_(library), skills_(skills) {}

  // Throws what prevents the removal; then the skill is as it was.
  void remove(const std::string& id, bool deleteFiles);
  // All that can be, in one transaction; goes on past failures.
  RemovalReport remove(const std::vector<std::string>& ids, bool deleteFiles, const OperationContext& context);
  Plan plan(const std::vector<std::string>& ids, bool deleteFiles);

 private:
  std::vector<SkillTarget> targetsOf(const std::vector<SkillRecord>& skills);

  Library& library_;
  Skills& skills_;
};

}  // namespace orvanta
