#pragma once

// Puts library skills into agents' folders and takes them out again, one pair of skill and agent or many, and keeps the
// deployment records true to the disk.
//
// Many pairs are read by a constant number of queries, examined and placed on all cores (pairs that share a place one
// after the other), and recorded in one transaction. If the records cannot be written, the files are put back.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/DeployBatch.h"
#include "engine/Library.h"
#include "engine/Presets.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

class Deployment {
 public:
  Deployment(Library& library, Skills& skills, Presets& presets)
      : library_(library), skills_(skills), presets_(presets) {}

  // One pair. A failure is logged and thrown.
  Placement deploy(const std::string& skillId, const std::string& tool, bool force);
  Placement undeploy(const std::string& skillId, const std::string& tool);

  // Every pair, skill by skill. A pair that is in place and recorded so already is not touched, on the disk or in the
  // records.
  PlacementReport deploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools, bool force,
                         const OperationContext& context);
  PlacementReport undeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools,
                           const OperationContext& context);
  Plan planDeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools, bool force);
  Plan planUndeploy(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools);

  // Throws `refused` with every failure; what could be placed is, and nothing is taken out then.
  void setDeployedTools(const std::string& skillId, const std::set<std::string>& tools);

 private:
  // Writes what became of the pair, and what it means for the active preset.
  void record(const DeployBatch::Pair& pair, const std::optional<Preset>& active);
  std::vector<SkillTarget> recordsOf(const std::vector<std::string>& skillIds, const std::vector<std::string>& tools);

  Library& library_;
  Skills& skills_;
  Presets& presets_;
};

}  // namespace orvanta
