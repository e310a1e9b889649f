#pragma once

// What somebody is shown who decides about an update.

#include <string>
#include <vector>

#include "content/SkillComparison.h"
#include "sources/UnifiedDiff.h"

namespace orvanta {

struct UpdateView {
  std::vector<SkillFileChange> changes;
  std::vector<std::string> findings;  // see `findingsIn`
  UnifiedDiff diff;
};

}  // namespace orvanta
