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

#include "engine/ActivePreset.h"
#include "engine/DeployBatch.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"

namespace orvanta {

// Who asks for a deployment. The active preset follows what is done by hand.
enum class Asker { hand, preset };

class Deployment {
 public:
  Deployment(Library& library, Skills& skills) : library_(library), skills_(skills) {}

  // One pair. A failure is logged and thrown.
  Placement deploy(const std::string& skillId, const std::string& tool, bool force);
  Placement undeploy(const std::string& skillId, const std::string& tool);

  // Every pair. One that is in place and recorded so already is not touched, on the disk or in the records.
  PlacementReport deploy(DeployRequest request, Asker asker, const OperationContext& context);
  Plan planDeploy(DeployRequest request);
  // Pairs without a deployment are passed over.
  PlacementReport undeploy(const std::vector<SkillToolPair>& pairs, Asker asker, const OperationContext& context);
  Plan planUndeploy(const std::vector<SkillToolPair>& pairs);

  // Throws `refused` with every failure; what could be placed is, and nothing is taken out then.
  void setDeployedTools(const std::string& skillId, const std::set<std::string>& tools);

 private:
  // Writes what became of the pair.
  void record(const DeployBatch::Pair& pair);
  std::optional<ActivePreset> presetFollowing(Asker asker);
  std::vector<SkillTarget> recordsOf(const std::vector<SkillToolPair>& pairs);

  Library& library_;
  Skills& skills_;
};

}  // namespace orvanta
