#include "engine/GitOrigin.h"

#include "foundations/SkillsError.h"

namespace orvanta {

ParsedGitSource gitOriginOf(const SkillRecord& skill) {
  const std::string address = skill.sourceRefResolved.value_or(skill.sourceRef.value_or(""));
  if (!isRemote(skill.sourceType) || address.empty()) {
    throw SkillsError::invalidInput("'" + skill.name + "' has no git source");
  }
  // A library can come from elsewhere, and its records with it.
  GitSource::validate(address);
  const ParsedGitSource parsed = GitSource::parse(address);
  return {.originalURL = address,
          .cloneURL = parsed.cloneURL,
          .branch = skill.sourceBranch,
          .subpath = skill.sourceSubpath};
}

}  // namespace orvanta
