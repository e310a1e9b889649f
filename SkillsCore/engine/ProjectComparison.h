#pragma once

// The skills of workspaces, each compared with the library. Looks at the disk only: every skill folder on either side
// is read once, on all cores, and needs no turn.

#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/Workspace.h"
#include "foundations/Models.h"
#include "foundations/Operation.h"

namespace orvanta {

class ProjectComparison {
 public:
  // `skills` is the library's.
  explicit ProjectComparison(std::vector<SkillRecord> skills);

  // The skills of each workspace, by agent and place. After a request to stop, those not read by then count as
  // diverged.
  [[nodiscard]] std::vector<std::vector<ProjectSkill>> compare(const std::vector<Workspace>& workspaces,
                                                               const OperationContext& context) const;

  // The one skill at this path. Throws `refused` when there is none.
  [[nodiscard]] ProjectSkill compareOne(const Workspace& workspace, const std::filesystem::path& path) const;

  // Whether the skill is a link to its library folder, and so can never differ.
  [[nodiscard]] bool isLinkIntoLibrary(const ProjectSkill& skill) const;

  // The library's skill whose folder is called so; nothing when there is none.
  [[nodiscard]] const SkillRecord* skillInFolder(const std::string& folderName) const;

  [[nodiscard]] const SkillRecord& record(const std::string& id) const { return skills_.at(positions_.at(id)); }

 private:
  struct Found;

  void findSkills(const Workspace& workspace, std::vector<Found>& found) const;
  void classify(std::vector<Found>& found, const OperationContext& context) const;
  [[nodiscard]] std::vector<const SkillRecord*> namesakes(const ProjectSkill& skill) const;
  [[nodiscard]] const SkillRecord* linkedSkill(const std::filesystem::path& real) const;

  std::vector<SkillRecord> skills_;
  std::unordered_map<std::string, std::size_t> positions_;
  std::unordered_multimap<std::string, std::size_t> byName_;
  std::unordered_map<std::string, std::size_t> byFolder_;  // the library folder, with links resolved
  std::unordered_map<std::string, std::size_t> byFolderName_;
};

}  // namespace orvanta
