#pragma once

// Taking skills out of use and back. Disabling takes a skill's files out of all agents' folders and keeps the records
// with status "disabled"; enabling places them again.

#include <optional>
#include <string>
#include <vector>

#include "agents/SyncEngine.h"
#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "engine/Reports.h"
#include "engine/Skills.h"
#include "foundations/Operation.h"
#include "foundations/SkillsError.h"

namespace orvanta {

class SkillActivation {
 public:
  SkillActivation(Library& library, Skills& skills) : library_(library), skills_(skills) {}

  // One skill. Throws `refused` when something else stands at one of the places; then nothing has changed.
  void setEnabled(const std::string& id, bool enabled);
  // Many skills, each as a whole or not at all, in one transaction.
  ActivationReport setEnabled(const std::vector<std::string>& ids, bool enabled, const OperationContext& context);
  Plan planSetEnabled(const std::string& id, bool enabled);

 private:
  // One skill that is placed again, until it is recorded.
  struct Restored {
    const SkillRecord* skill = nullptr;
    std::vector<TargetChange> changes;
    std::vector<SkillTarget> records;
    std::optional<SkillsError> failure;
  };

  Restored prepareToRestore(const SkillRecord& skill, std::vector<SkillTarget> targets);
  static void makeWhole(FolderChanges& changes, std::vector<Restored>& skills);
  ActivationReport enable(const std::vector<SkillRecord>& skills, const OperationContext& context);
  ActivationReport disable(const std::vector<SkillRecord>& skills, const OperationContext& context);
  void recordEnabled(const SkillRecord& skill, bool enabled);

  Library& library_;
  Skills& skills_;
};

}  // namespace orvanta
