#pragma once

// Placing library skills in a project's folders, as copies that travel with it or as links that stay in sync. What
// stands there already is replaced only when the user asked for it. Nothing is recorded: these folders are the
// project's from then on.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agents/SyncEngine.h"
#include "agents/ToolAdapters.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Workspace.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"

namespace orvanta {

class ProjectExportBatch {
 public:
  // One pair and what became of it.
  struct Item {
    SkillToolPair names;
    const SkillRecord* skill = nullptr;
    std::string agentName;
    std::filesystem::path target;
    std::filesystem::path place;  // the target with the links of its folder resolved
    std::optional<SkillsError> failure;
    PlannedStep::Action action = PlannedStep::Action::keep;
    TargetState found = TargetState::absent;
    TargetChange change;
    const Item* sharing = nullptr;  // the item that fills the place for this one, too
    bool isPrepared = false;
    bool done = false;

    [[nodiscard]] std::string skillName() const { return skill != nullptr ? skill->name : names.skillId; }
  };

  ProjectExportBatch(Library& library, const Workspace& workspace, const ProjectExport& request);

  // What each pair would need, changing nothing.
  Plan plan();
  // Every pair that was reached before a request to stop ends with `done` or a `failure`. The changes are taken back
  // when the batch goes, unless `keep` was called.
  void place(const OperationContext& context);
  // Belongs into the transaction that logs it.
  void recorded() { changes_.recorded(); }
  void keep();

  [[nodiscard]] const std::vector<Item>& items() const { return items_; }

 private:
  // Where an agent's skills go in this workspace, or why nowhere.
  struct Destination {
    std::string agentName;
    std::filesystem::path path;
    std::filesystem::path real;
    std::optional<SkillsError> failure;
  };

  void findDestination(const std::string& tool, const Workspace& workspace, const std::vector<ToolAdapter>& adapters);
  void locate(Item& item);
  void examine(Item& item);
  void prepare(Item& item, const Item* sharing);
  void makeAll();

  Library& library_;
  const SyncMode mode_;
  const bool force_;
  SyncEngine::FolderResolver resolver_;
  DeploymentIndex deployments_;
  std::map<std::string, SkillRecord> skills_;
  std::map<std::string, Destination> destinations_;  // by agent
  FolderChanges changes_;
  std::vector<Item> items_;
};

}  // namespace orvanta
