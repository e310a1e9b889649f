#include "engine/SiteInstallation.h"

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

SiteInstallation::Failures SiteInstallation::forEachSkill(
    const std::vector<WellKnownIndex::Entry>& entries, const std::optional<std::string>& name,
    const OperationContext& context, const std::function<void(const InstallRequest&)>& body) const {
  if (name && entries.size() != 1) {
    throw SkillsError::invalidInput("A name is for one skill, and there are " + std::to_string(entries.size()));
  }
  Failures failures;
  std::size_t done = 0;
  for (const auto& entry : entries) {
    failures.interrupted = context.stop.stop_requested();
    if (failures.interrupted) break;
    std::optional<WellKnownSkill> skill;
    std::optional<InstallRequest> request;
    try {
      skill.emplace(client_, index_, entry, temp_, context);
      request = requestFor(index_, entry, skill->folder(), name);
    } catch (const SkillsError& error) {
      failures.interrupted = context.stop.stop_requested();
      if (failures.interrupted) break;
      failures.errors.push_back(entry.name + ": " + error.message());
    }
    if (request) body(*request);
    context.report("Fetching skills", ++done, entries.size());
  }
  return failures;
}

}  // namespace orvanta
