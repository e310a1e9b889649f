#pragma once

// The Git source that a skill's record tells of.

#include "foundations/Models.h"
#include "sources/GitSource.h"

namespace orvanta {

// Throws `invalidInput` for a skill that has none, and for an address that git must not be given.
ParsedGitSource gitOriginOf(const SkillRecord& skill);

}  // namespace orvanta
