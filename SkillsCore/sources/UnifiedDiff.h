#pragma once

// The differences between texts as git shows them.

#include <string>
#include <vector>

#include "content/SkillComparison.h"
#include "foundations/Operation.h"
#include "sources/GitClient.h"

namespace orvanta {

struct UnifiedDiff {
  std::string text;  // UTF-8; as the files hold it, control characters and all
  bool isCut = false;
  std::vector<std::string> omitted;  // paths of changes whose content is no text, or too much to show
};

// The changes of text files. Throws `git` when git is not installed or was stopped, `io` for the rest.
UnifiedDiff unifiedDiff(const std::vector<SkillFileChange>& changes, const GitSettings& settings,
                        const OperationContext& context);

}  // namespace orvanta
