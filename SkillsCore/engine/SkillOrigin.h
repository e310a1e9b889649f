#pragma once

// Where skills come from, by what their records tell.

#include <utility>
#include <vector>

#include "foundations/Models.h"
#include "foundations/SkillsError.h"
#include "sources/GitSource.h"

namespace orvanta {

// Whether the records name the same place; what was found at one says nothing about the other otherwise.
bool hasSameOrigin(const SkillRecord& a, const SkillRecord& b);

// Skills by who has to be asked about them. The pointers are into the list that was grouped.
struct SkillsByOrigin {
  // Those that come from one branch of one repository.
  struct Repository {
    ParsedGitSource source;
    std::vector<const SkillRecord*> skills;
  };

  std::vector<Repository> repositories;
  std::vector<const SkillRecord*> folders;                           // on this disk, or nowhere
  std::vector<const SkillRecord*> published;                         // by web sites
  std::vector<std::pair<const SkillRecord*, SkillsError>> failures;  // without an address that git may be given
};
SkillsByOrigin groupedByOrigin(const std::vector<SkillRecord>& skills);

}  // namespace orvanta
