#pragma once

// Makes the disk agree with the deployment records again: broken links are made anew, stale copies refreshed. What
// cannot be repaired is recorded with status "error"; the deployments of disabled skills are left alone.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agents/SyncEngine.h"
#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"

namespace orvanta {

class Repair {
 public:
  explicit Repair(Library& library) : library_(library) {}

  ApplyReport repairDeployments(const OperationContext& context);
  Plan plan();

  // Copies the skill anew to every agent that holds an old copy, after its library folder changed. A copy that
  // cannot be replaced is recorded as broken.
  void resyncCopyTargets(const SkillRecord& skill);

  // The copies of the skill that have another content than this, or are recorded as broken.
  std::vector<SkillTarget> staleCopies(const SkillRecord& skill, const std::optional<std::string>& hash);

  // What the record says stands there, with the content that the library has now.
  static bool isCurrent(const std::filesystem::path& source, const SkillTarget& record,
                        const std::optional<std::string>& currentHash);

 private:
  // One record and what is to be done about it.
  struct Item {
    SkillTarget record;
    const SkillRecord* skill = nullptr;
    std::optional<std::string> currentHash;  // known for copies
    std::string place;
    const Item* sharing = nullptr;  // another record of the place, which is mended for this one, too
    bool repaired = false;
    bool intact = false;
    std::optional<std::string> failure;
    TargetChange change;
  };

  // Throws what refuses it.
  TargetChange prepareCopy(const SkillRecord& skill, const SkillTarget& target);
  std::vector<Item> items();
  PlannedStep::Action examine(const Item& item);
  void prepare(Item& item, const Item* sharing);
  static void makeAll(FolderChanges& changes, std::vector<Item>& items);
  void record(Item& item);
  void recordCopy(SkillTarget& target, const std::string& hash, const std::optional<std::string>& failure);

  Library& library_;
  std::optional<SyncEngine::FolderResolver> resolver_;  // of the operation that runs
  std::map<std::string, SkillRecord> skills_;
  std::vector<SkillTarget> orphans_;  // records whose skill is gone, as a database written elsewhere can hold them
};

}  // namespace orvanta
