#pragma once

// The deployment records as an operation over many of them needs them: by skill and agent, and by the place on the
// disk. Agents can share one folder, also by way of links, so places are told apart with the links of their folders
// resolved.

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "agents/SyncEngine.h"
#include "foundations/Models.h"

namespace orvanta {

class DeploymentIndex {
 public:
  DeploymentIndex(std::vector<SkillTarget> targets, SyncEngine::FolderResolver& resolver);

  [[nodiscard]] const SkillTarget* find(const std::string& skillId, const std::string& tool) const;

  // A place as text: the folder with its links resolved, and the name in it.
  [[nodiscard]] std::string place(const std::string& path) const;

  // Another record than that of the skill and agent whose files stand at the place; nothing when there is none.
  [[nodiscard]] const SkillTarget* otherAt(const std::string& place, const std::string& skillId,
                                           const std::string& tool) const;

  // All records whose files stand at the place.
  [[nodiscard]] std::vector<const SkillTarget*> recordsAt(const std::string& place) const;

  // A record whose files stand below the folder; nothing when there is none.
  [[nodiscard]] const SkillTarget* below(const std::string& folder) const;

  // A record of a copy in whose folder the place lies; nothing when there is none.
  [[nodiscard]] const SkillTarget* copyAround(const std::string& place) const;

  // Its files no longer stand at their place. `target` is one of the records of this index.
  void remove(const SkillTarget& target);

 private:
  static std::string pairKey(const std::string& skillId, const std::string& tool) { return skillId + '\n' + tool; }

  std::vector<SkillTarget> targets_;
  SyncEngine::FolderResolver& resolver_;
  std::unordered_map<std::string, std::size_t> byPair_;
  std::unordered_multimap<std::string, std::size_t> byPlace_;
};

}  // namespace orvanta
