#include "engine/SiteInstallation.h"

#include <deque>

#include "content/SkillMetadata.h"
#include "foundations/SkillsError.h"
#include "sources/WellKnownSkill.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// A skill that does not name itself is named after its entry, not after the folder it was fetched into.
InstallRequest requestFor(const WellKnownIndex& index, const WellKnownIndex::Entry& entry, const fs::path& folder,
                          const std::optional<std::string>& name) {
  auto chosen = name;
  const auto own = SkillMetadata::parseSkillMd(folder).name.value_or("");
  if (!chosen && !SkillMetadata::sanitizeSkillName(own)) chosen = entry.name;
  return {.folder = folder,
          .name = chosen,
          .source = {.type = SourceType::wellKnown,
                     .ref = index.domain + "/" + entry.name,
                     .resolved = index.baseURL,
                     .branch = {},
                     .subpath = {},
                     .revision = {}},
          .action = "install_well_known"};
}

}  // namespace

void SiteInstallation::withSkills(const HTTPClient& client, const WellKnownIndex& index,
                                  const std::vector<WellKnownIndex::Entry>& entries,
                                  const std::optional<std::string>& name, const fs::path& temp,
                                  const OperationContext& context, const std::function<void(Found)>& body) {
  if (name && entries.size() != 1) {
    throw SkillsError::invalidInput("A name is for one skill, and there are " + std::to_string(entries.size()));
  }
  std::deque<WellKnownSkill> fetched;
  Found found;
  for (const auto& entry : entries) {
    try {
      const auto& skill = fetched.emplace_back(client, index, entry, temp, context);
      found.requests.push_back(requestFor(index, entry, skill.folder(), name));
    } catch (const SkillsError& error) {
      found.interrupted = context.stop.stop_requested();
      if (found.interrupted) break;
      found.errors.push_back(entry.name + ": " + error.message());
    }
  }
  body(std::move(found));
}

}  // namespace orvanta
