#include "engine/SkillOrigin.h"

#include <map>
#include <optional>
#include <string>

namespace orvanta {

namespace {

ParsedGitSource gitSourceOf(const SkillRecord& skill) {
  const std::string address = skill.sourceRefResolved.value_or(skill.sourceRef.value_or(""));
  if (address.empty()) throw SkillsError::invalidInput("'" + skill.name + "' has no git source");
  // A library can come from elsewhere, and its records with it.
  GitSource::validate(address);
  const ParsedGitSource parsed = GitSource::parse(address);
  return {.originalURL = address,
          .cloneURL = parsed.cloneURL,
          .branch = skill.sourceBranch ? skill.sourceBranch : parsed.branch,
          .subpath = skill.sourceSubpath ? skill.sourceSubpath : parsed.subpath};
}

}  // namespace

bool hasSameOrigin(const SkillRecord& a, const SkillRecord& b) {
  return a.sourceType == b.sourceType && a.sourceRef == b.sourceRef && a.sourceRefResolved == b.sourceRefResolved &&
         a.sourceBranch == b.sourceBranch && a.sourceSubpath == b.sourceSubpath;
}

SkillsByOrigin groupedByOrigin(const std::vector<SkillRecord>& skills) {
  SkillsByOrigin groups;
  std::map<std::pair<std::string, std::optional<std::string>>, std::size_t> places;
  for (const auto& skill : skills) {
    if (skill.sourceType == SourceType::wellKnown) {
      groups.published.push_back(&skill);
    } else if (!isRemote(skill.sourceType)) {
      groups.folders.push_back(&skill);
    } else {
      try {
        const auto source = gitSourceOf(skill);
        const auto [place, isNew] =
            places.try_emplace({GitSource::canonicalize(source.cloneURL), source.branch}, groups.repositories.size());
        if (isNew) groups.repositories.push_back({.source = source, .skills = {}});
        groups.repositories[place->second].skills.push_back(&skill);
      } catch (const SkillsError& error) {
        groups.failures.emplace_back(&skill, error);
      }
    }
  }
  return groups;
}

}  // namespace orvanta
