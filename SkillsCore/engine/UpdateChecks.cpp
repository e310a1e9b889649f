#include "engine/UpdateChecks.h"

#include <map>
#include <mutex>
#include <utility>

#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "engine/GitOrigin.h"
#include "files/FS.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

CheckOutcome failed(const SkillRecord& skill, const SkillsError& error) {
  return {.skillId = skill.id, .status = UpdateStatus::error, .error = error.message()};
}

// A skill that was copied from a folder on this disk.
CheckOutcome checkFolder(const SkillRecord& skill) {
  const std::string source = skill.sourceRef.value_or("");
  if (source.empty()) return {.skillId = skill.id, .status = UpdateStatus::localOnly};
  if (!FS::resolvesToDirectory(source) || !SkillMetadata::isValidSkillDir(source)) {
    return {.skillId = skill.id, .status = UpdateStatus::sourceMissing};
  }
  try {
    return {.skillId = skill.id, .found = ContentHash::hashDirectory(source)};
  } catch (const SkillsError& error) {
    return failed(skill, error);
  }
}

}  // namespace

UpdateChecks::UpdateChecks(const std::vector<SkillRecord>& skills) {
  std::map<std::pair<std::string, std::optional<std::string>>, std::size_t> repositories;
  std::vector<Question> folders;
  for (const auto& skill : skills) {
    if (skill.sourceType == SourceType::wellKnown) {
      // A site's index carries no revision.
      answered_.push_back({.skillId = skill.id, .status = UpdateStatus::unknown});
    } else if (!isRemote(skill.sourceType)) {
      folders.push_back({.source = {}, .skills = {&skill}});
    } else {
      try {
        const auto source = gitOriginOf(skill);
        const auto [place, isNew] = repositories.try_emplace({source.cloneURL, source.branch}, questions_.size());
        if (isNew) questions_.push_back({.source = source, .skills = {}});
        questions_[place->second].skills.push_back(&skill);
      } catch (const SkillsError& error) {
        answered_.push_back(failed(skill, error));
      }
    }
  }
  // The network first: whoever waits for it leaves the processor to the others.
  questions_.insert(questions_.end(), folders.begin(), folders.end());
}

std::vector<std::string> UpdateChecks::remoteIds() const {
  std::vector<std::string> ids;
  for (const auto& question : questions_) {
    if (!question.source) continue;
    for (const SkillRecord* skill : question.skills) ids.push_back(skill->id);
  }
  return ids;
}

void UpdateChecks::run(const GitSettings& settings, std::size_t concurrency, const OperationContext& context,
                       const std::function<void(const std::vector<CheckOutcome>&)>& finished) const {
  if (!answered_.empty()) finished(answered_);
  const GitClient client(settings);
  std::mutex progress;
  std::size_t done = 0;
  parallelFor(
      questions_.size(),
      [&](std::size_t i) {
        if (context.stop.stop_requested()) return;
        const auto outcomes = ask(questions_[i], client, context);
        if (context.stop.stop_requested()) return;  // what was cut short is no answer
        finished(outcomes);
        const std::lock_guard lock(progress);
        context.report("Checking sources", ++done, questions_.size());
      },
      concurrency);
}

std::vector<CheckOutcome> UpdateChecks::ask(const Question& question, const GitClient& client,
                                            const OperationContext& context) {
  if (!question.source) return {checkFolder(*question.skills.front())};
  std::vector<CheckOutcome> outcomes;
  try {
    const std::string head = client.remoteHead(question.source->cloneURL, question.source->branch, context);
    for (const SkillRecord* skill : question.skills) outcomes.push_back({.skillId = skill->id, .found = head});
  } catch (const SkillsError& error) {
    for (const SkillRecord* skill : question.skills) outcomes.push_back(failed(*skill, error));
  }
  return outcomes;
}

}  // namespace orvanta
