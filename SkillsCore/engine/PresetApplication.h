#pragma once

// Making agents' folders what presets want: deploying it, taking it out again, and the switches of the active preset,
// which take effect at once.

#include <optional>
#include <string>
#include <vector>

#include "engine/Deployment.h"
#include "engine/Library.h"
#include "engine/Presets.h"
#include "engine/Reports.h"
#include "foundations/Operation.h"

namespace orvanta {

class PresetApplication {
 public:
  PresetApplication(Library& library, Presets& presets, Deployment& deployment)
      : library_(library), presets_(presets), deployment_(deployment) {}

  ApplyReport apply(const std::string& id, bool exclusive, const OperationContext& context);
  Plan planApply(const std::string& id, bool exclusive);

  ApplyReport deactivate(const std::string& id, const OperationContext& context);
  Plan planDeactivate(const std::string& id);

  // The deployment made, if one was made.
  std::optional<Placement> setSkillTool(const std::string& id, const std::string& skillId, const std::string& tool,
                                        bool enabled);

 private:
  // The recorded deployments that are not among these pairs.
  std::vector<SkillToolPair> deploymentsBeside(const std::vector<SkillToolPair>& pairs);
  // Returns whether it was interrupted.
  bool takeOut(const std::vector<SkillToolPair>& pairs, const OperationContext& context, ApplyReport& report);
  void log(const std::string& action, const Preset& preset, const ApplyReport& report);

  Library& library_;
  Presets& presets_;
  Deployment& deployment_;
};

}  // namespace orvanta
