#pragma once

// Pairs of skills and agents.

#include <string>
#include <vector>

#include "foundations/Models.h"

namespace orvanta {

// Every skill with every agent, skill by skill.
inline std::vector<SkillToolPair> pairsOf(const std::vector<std::string>& skillIds,
                                          const std::vector<std::string>& tools) {
  std::vector<SkillToolPair> pairs;
  pairs.reserve(skillIds.size() * tools.size());
  for (const auto& skillId : skillIds) {
    for (const auto& tool : tools) pairs.push_back({skillId, tool});
  }
  return pairs;
}

}  // namespace orvanta
