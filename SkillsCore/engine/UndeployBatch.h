#pragma once

// Taking one list of recorded deployments out of the agents' folders: which files go, which stay and why, and the
// doing.

#include <optional>
#include <string>
#include <vector>

#include "agents/SyncEngine.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"

namespace orvanta {

class UndeployBatch {
 public:
  struct Pair {
    SkillTarget record;
    std::string skillName;
    std::string centralPath;
    bool cleared = false;             // nothing stands at the place any more
    std::optional<std::string> note;  // why something does
    bool failed = false;              // because it could not be removed
    bool isShared = false;            // because another agent's record names the place, too
    TargetChange change;
    bool done = false;
  };

  // The records are those of `records`, in this order; other agents' records protect the places they share.
  UndeployBatch(Library& library, std::vector<SkillTarget> records);

  Plan plan();
  // Changes the agents' folders; the changes are taken back when the batch goes, unless `keep` was called.
  void takeOut(const OperationContext& context);
  // Belongs into the transaction that writes the records.
  void recorded() { changes_.recorded(); }
  void keep();

  [[nodiscard]] const std::vector<Pair>& pairs() const { return pairs_; }

 private:
  enum class Fate { clear, absent, kept, preserved };

  Fate fateOf(const Pair& pair);
  void prepare(Pair& pair);

  SyncEngine::FolderResolver resolver_;
  DeploymentIndex index_;
  FolderChanges changes_;
  std::vector<Pair> pairs_;
};

}  // namespace orvanta
