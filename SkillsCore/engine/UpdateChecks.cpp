#include "engine/UpdateChecks.h"

#include <mutex>

#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "foundations/Parallel.h"

namespace orvanta {

namespace {

CheckOutcome failed(const SkillRecord& skill, const SkillsError& error) {
  return {.skill = &skill, .status = UpdateStatus::error, .error = error.message()};
}

CheckOutcome askFolder(const SkillRecord& skill) {
  const std::string source = skill.sourceRef.value_or("");
  if (source.empty()) return {.skill = &skill, .status = UpdateStatus::localOnly};
  if (!FS::resolvesToDirectory(source) || !SkillMetadata::isValidSkillDir(source)) {
    return {.skill = &skill, .status = UpdateStatus::sourceMissing};
  }
  try {
    return {.skill = &skill, .found = ContentHash::hashDirectory(source)};
  } catch (const SkillsError& error) {
    return failed(skill, error);
  }
}

std::vector<CheckOutcome> askRepository(const SkillsByOrigin::Repository& repository, const GitClient& client,
                                        const OperationContext& context) {
  std::vector<CheckOutcome> outcomes;
  try {
    const std::string head = client.remoteHead(repository.source.cloneURL, repository.source.branch, context);
    for (const SkillRecord* skill : repository.skills) outcomes.push_back({.skill = skill, .found = head});
  } catch (const SkillsError& error) {
    for (const SkillRecord* skill : repository.skills) outcomes.push_back(failed(*skill, error));
  }
  return outcomes;
}

}  // namespace

std::vector<std::string> UpdateChecks::remoteIds() const {
  std::vector<std::string> ids;
  for (const auto& repository : groups_.repositories) {
    for (const SkillRecord* skill : repository.skills) ids.push_back(skill->id);
  }
  return ids;
}

void UpdateChecks::run(const GitSettings& settings, std::size_t concurrency, const OperationContext& context,
                       const std::function<void(const std::vector<CheckOutcome>&)>& finished) const {
  // Without asking anybody: a site's index carries no revision.
  std::vector<CheckOutcome> known;
  for (const SkillRecord* skill : groups_.published) known.push_back({.skill = skill});
  for (const auto& [skill, error] : groups_.failures) known.push_back(failed(*skill, error));
  if (!known.empty()) finished(known);

  const GitClient client(settings);
  const std::size_t repositories = groups_.repositories.size();
  const std::size_t count = repositories + groups_.folders.size();
  std::mutex progress;
  std::size_t done = 0;
  // Repositories first: who waits for the network leaves the processor to the others.
  parallelFor(
      count,
      [&](std::size_t i) {
        if (context.stop.stop_requested()) return;
        const auto outcomes = i < repositories ? askRepository(groups_.repositories[i], client, context)
                                               : std::vector{askFolder(*groups_.folders[i - repositories])};
        if (context.stop.stop_requested()) return;  // what was cut short is no answer
        finished(outcomes);
        const std::lock_guard lock(progress);
        context.report("Checking sources", ++done, count);
      },
      concurrency);
}

}  // namespace orvanta
