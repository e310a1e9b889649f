#pragma once

// The active preset as it follows what the user deploys and undeploys by hand.

#include <optional>
#include <set>
#include <string>

#include "engine/Library.h"

namespace orvanta {

class ActivePreset {
 public:
  // Reads it once; to be used within one operation.
  explicit ActivePreset(Library& library);

  // Notes in it, when it has the skill, that the agent is wanted or not. Writes nothing otherwise, or when that is
  // noted already.
  void setActivePresetToggle(const std::string& skillId, const std::string& tool, bool enabled);

 private:
  Library& library_;
  std::optional<Preset> preset_;
  std::set<std::string> members_;
};

}  // namespace orvanta
