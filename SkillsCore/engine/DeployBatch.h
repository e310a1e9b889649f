#pragma once

// Deploying one list of pairs: what was read for it, what each pair would need, and the doing. The plan of a dry run
// and the deed come from the same examination of each pair.

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agents/SyncEngine.h"
#include "agents/ToolAdapters.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"

namespace orvanta {

// What is to be deployed, and how.
struct DeployRequest {
  std::vector<SkillToolPair> pairs;
  bool force = false;            // also over what the library did not place
  bool keepsIntact = false;      // what stands where it is recorded stays, in whatever mode and with whatever content
  std::optional<SyncMode> mode;  // else the library's
};

// Why a skill cannot be placed anywhere; nothing when it can.
std::optional<SkillsError> whyUndeployable(const SkillRecord& skill);

class DeployBatch {
 public:
  // One pair and what became of it.
  struct Pair {
    std::string skillId;
    std::string tool;
    const SkillRecord* skill = nullptr;
    const ToolAdapter* adapter = nullptr;
    const SkillTarget* record = nullptr;  // the deployment as it is recorded so far
    std::filesystem::path target;         // empty when `failure` is set
    std::string place;
    std::optional<SkillsError> failure;
    SyncMode mode = SyncMode::symlink;
    PlannedStep::Action action = PlannedStep::Action::keep;
    std::optional<std::string> sourceHash;
    TargetChange change;
    TargetChange oldPlacement;              // the removal of the skill from a folder that the agent no longer uses
    std::optional<SkillsError> oldFailure;  // why that could not be
    const Pair* sharing = nullptr;          // the pair of this batch that fills the place for this one, too
    bool isPrepared = false;
    bool done = false;

    [[nodiscard]] std::string name() const { return skill != nullptr ? skill->name : skillId; }
    [[nodiscard]] std::string agentName() const { return adapter != nullptr ? adapter->displayName : tool; }
  };

  DeployBatch(Library& library, DeployRequest request);

  // What each pair would need, changing nothing. `removals` are planned to be done before.
  Plan plan(const Plan& removals = {});
  // Changes the agents' folders; every pair that was reached ends with `done` or a `failure`. The changes are taken
  // back when the batch goes, unless `keep` was called.
  void place(const OperationContext& context);
  // Belongs into the transaction that writes the records.
  void recorded() { changes_.recorded(); }
  void keep();

  [[nodiscard]] const std::vector<Pair>& pairs() const { return pairs_; }
  // The record that a placed pair should have now.
  [[nodiscard]] static SkillTarget recordOf(const Pair& pair);
  // Whether the records say so already, but for the time.
  [[nodiscard]] static bool isRecorded(const Pair& pair);

 private:
  struct Need {
    PlannedStep::Action action = PlannedStep::Action::keep;
    SyncMode mode = SyncMode::symlink;
    TargetState found = TargetState::absent;
    std::optional<std::string> sourceHash;  // what the records are to say of the content that stands there
  };

  void readSkills(const std::set<std::string>& wanted);
  void readAgents(const std::set<std::string>& tools);
  void hashForCopies();
  Pair makePair(SkillToolPair names) const;
  std::vector<std::vector<std::size_t>> groupsByPlace() const;

  Need examine(const Pair& pair);
  Need needBesideOther(const Pair& pair, const SkillTarget& other);
  [[nodiscard]] bool isInPlace(const Pair& pair) const;
  [[nodiscard]] bool isIntact(const Pair& pair) const;
  void prepareAll(const OperationContext& context);
  void makeAll();
  // Of pairs that are done, or could be, those whose agent's folder has moved since, and whose old placement is
  // nobody's.
  std::vector<Pair*> leavingOldFolders(const std::vector<Pair*>& placed);
  void takeAwayOldPlacements(const std::vector<Pair*>& leaving);
  [[nodiscard]] bool isRecordedAtTarget(const Pair& pair) const;
  [[nodiscard]] std::optional<std::string> hashOf(const Pair& pair) const;
  void preparePair(Pair& pair, const Pair* sharing);

  Library& library_;
  const bool force_;
  const bool keepsIntact_;
  const SyncMode mode_;
  SyncEngine::FolderResolver resolver_;
  DeploymentIndex index_;
  std::map<std::string, SkillRecord> skills_;
  std::map<std::string, SkillsError> skillFailures_;
  std::map<std::string, ToolAdapter> adapters_;
  // An agent's folder as it is spelled, and with its links resolved; both end in a separator.
  struct Folder {
    std::string path;
    std::string place;
  };
  std::map<std::string, Folder> folders_;
  std::map<std::string, std::string> dirNames_;  // the folder name of each skill
  std::map<std::string, SkillsError> agentFailures_;
  std::map<std::string, std::optional<std::string>> currentHashes_;  // by skill, for copies
  FolderChanges changes_;
  std::vector<Pair> pairs_;
};

}  // namespace orvanta
