// Updates, as the engine offers them. No turn is held while a source is waited for; skills are marked meanwhile as
// being checked or updated, and a folder in the library tells a later start that this process was there to take the
// marks off.

#include <mutex>

#include "engine/LibraryRecovery.h"
#include "engine/SkillsEngineState.h"
#include "engine/UpdateChecks.h"
#include "engine/UpdateFetch.h"
#include "foundations/SkillsError.h"
#include "sources/StagingFolder.h"

namespace orvanta {

// The marks of one operation; those that are not settled go back to what they were.
class SkillsEngine::State::UpdateMarks {
 public:
  UpdateMarks(State& state, const std::vector<std::string>& ids, UpdateStatus status)
      : state_(state), mark_(status), presence_(state.paths().skills(), kUpdatingPrefix) {
    const ChangeTurn turn(state_);
    before_ = state_.components.updates.mark(ids, status);
  }
  ~UpdateMarks() {
    try {
      if (before_.empty()) return;
      const ChangeTurn turn(state_);
      state_.components.updates.restore(before_, mark_);
    } catch (const SkillsError&) {
      presence_.leaveBehind();  // a later start takes the marks off
    }
  }
  UpdateMarks(const UpdateMarks&) = delete;
  UpdateMarks& operator=(const UpdateMarks&) = delete;

  // Its status has been recorded anew. For one thread at a time.
  void settle(const std::string& id) { before_.erase(id); }

 private:
  State& state_;
  const UpdateStatus mark_;
  StagingFolder presence_;
  Updates::Statuses before_;
};

UpdateStatus SkillsEngine::checkUpdate(const std::string& id, const OperationContext& context) {
  const auto report = checkUpdates({{id}}, 1, context);
  const auto status = report.statuses.find(id);
  if (!report.errors.empty() && status == report.statuses.end())
    throw SkillsError::notFound(report.errors.begin()->second);
  if (status == report.statuses.end()) throw SkillsError::refused("The check was stopped");
  return status->second;
}

UpdateCheckReport SkillsEngine::checkUpdates(const std::optional<std::vector<std::string>>& ids,
                                             std::size_t concurrency, const OperationContext& context) {
  UpdateCheckReport report;
  const auto chosen = ids ? knownSkills(*ids, report.errors) : skills();
  const UpdateChecks checks(chosen);
  State::UpdateMarks marks(*state_, checks.remoteIds(), UpdateStatus::checking);
  std::mutex recording;
  checks.run(gitSettings(context), concurrency, context, [&](const std::vector<CheckOutcome>& outcomes) {
    const std::lock_guard lock(recording);
    try {
      const State::ChangeTurn turn(*state_);
      state_->components.updates.record(outcomes, report);
      for (const auto& outcome : outcomes) marks.settle(outcome.skill->id);
    } catch (const SkillsError& error) {
      for (const auto& outcome : outcomes) report.errors[outcome.skill->id] = error.message();
    }
  });
  report.interrupted = context.stop.stop_requested();
  return report;
}

std::vector<SkillRecord> SkillsEngine::knownSkills(const std::vector<std::string>& ids,
                                                   std::map<std::string, std::string>& errors) {
  std::vector<SkillRecord> known;
  for (const auto& id : ids) {
    try {
      known.push_back(skillsWithIds({id}).front());
    } catch (const SkillsError& error) {
      errors[id] = error.message();
    }
  }
  return known;
}

IncomingUpdate SkillsEngine::previewUpdate(const std::string& id, const OperationContext& context) {
  auto fetched = fetchUpdates({id}, FetchPurpose::preview, context);
  if (!fetched.failures.empty()) throw fetched.failures.begin()->second.error;
  if (fetched.updates.empty()) throw SkillsError::refused("Stopped on request. Nothing was changed.");
  return std::move(fetched.updates.front());
}

UpdateView SkillsEngine::viewOf(const IncomingUpdate& update, const OperationContext& context) {
  UpdateView view{.changes = update.changes(), .findings = {}, .diff = {}};
  view.findings = findingsIn(view.changes);
  view.diff = unifiedDiff(view.changes, gitSettings(context), context);
  return view;
}

FetchedUpdates SkillsEngine::fetchUpdates(const std::vector<std::string>& ids, FetchPurpose purpose,
                                          const OperationContext& context) {
  const auto chosen = skillsWithIds(ids);
  const UpdateFetch fetch(state_->paths(), gitSettings(context));
  if (purpose == FetchPurpose::preview) return fetch.fetch(chosen, context);
  State::UpdateMarks marks(*state_, ids, UpdateStatus::updating);
  FetchedUpdates fetched = fetch.fetch(chosen, context);
  if (fetched.failures.empty()) return fetched;
  const State::ChangeTurn turn(*state_);
  for (const auto& [id, failure] : fetched.failures) {
    state_->components.updates.recordFailure(failure);
    marks.settle(id);
  }
  return fetched;
}

FetchedUpdates SkillsEngine::fetchReimport(const std::string& id, FetchPurpose purpose,
                                           const OperationContext& context) {
  const SkillRecord skill = skillsWithIds({id}).front();
  if (skill.sourceType != SourceType::local && skill.sourceType != SourceType::imported) {
    throw SkillsError::invalidInput("'" + skill.name + "' has no source directory");
  }
  return fetchUpdates({id}, purpose, context);
}

UpdateReport SkillsEngine::applyUpdates(const FetchedUpdates& fetched, const OperationContext& context) {
  UpdateReport report;
  for (const auto& [id, failure] : fetched.failures) report.failures.push_back({id, failure.skill.name, failure.error});
  report.interrupted = fetched.interrupted;
  std::size_t done = 0;
  for (const auto& update : fetched.updates) {
    report.interrupted = report.interrupted || context.stop.stop_requested();
    if (report.interrupted) break;
    const SkillRecord& skill = update.skill();
    try {
      (bringIn(update) ? report.updatedIds : report.unchangedIds).push_back(skill.id);
    } catch (const SkillsError& error) {
      report.failures.push_back({skill.id, skill.name, error});
    }
    context.report("Updating", ++done, fetched.updates.size());
  }
  return report;
}

bool SkillsEngine::bringIn(const IncomingUpdate& update) {
  const auto near = Updates::broughtNear(state_->paths(), update);
  const State::ChangeTurn turn(*state_);
  Updates& updates = state_->components.updates;
  try {
    return updates.bringIn(update, *near);
  } catch (const SkillsError& error) {
    updates.recordFailure({.skill = update.skill(), .error = error});
    throw;
  }
}

Plan SkillsEngine::planUpdates(const FetchedUpdates& fetched) {
  Plan plan;
  const Turn turn(state_->mutex);
  for (const auto& update : fetched.updates) {
    const Plan steps = state_->components.updates.plan(update);
    plan.insert(plan.end(), steps.begin(), steps.end());
  }
  for (const auto& [id, failure] : fetched.failures) {
    plan.push_back({.action = PlannedStep::Action::refused,
                    .skillName = failure.skill.name,
                    .skillId = id,
                    .tool = {},
                    .path = failure.skill.centralPath,
                    .reason = failure.error.message()});
  }
  return plan;
}

SkillSummary SkillsEngine::updateSkill(const std::string& id, const OperationContext& context) {
  return bringInOne(fetchUpdates({id}, FetchPurpose::update, context), context);
}

SkillSummary SkillsEngine::reimportFromSource(const std::string& id, const OperationContext& context) {
  return bringInOne(fetchReimport(id, FetchPurpose::update, context), context);
}

SkillSummary SkillsEngine::bringInOne(const FetchedUpdates& fetched, const OperationContext& context) {
  for (const auto& update : fetched.updates) refuseLostEdits(update);
  const UpdateReport report = applyUpdates(fetched, context);
  if (!report.failures.empty()) throw report.failures.front().error;
  if (report.interrupted) throw SkillsError::refused("Stopped on request. Nothing was changed.");
  return summary(fetched.updates.front().skill().id);
}

ApplyReport SkillsEngine::updateAll(const OperationContext& context) {
  FetchedUpdates fetched = fetchUpdates(idsWithUpdates(), FetchPurpose::update, context);
  fetched.withholdLostEdits();
  return applyUpdates(fetched, context).asApplied();
}

std::vector<std::string> SkillsEngine::idsWithUpdates() {
  std::vector<std::string> ids;
  for (const auto& skill : skills()) {
    if (skill.updateStatus == UpdateStatus::available) ids.push_back(skill.id);
  }
  return ids;
}

std::vector<SkillRecord> SkillsEngine::skillsWithIds(const std::vector<std::string>& ids) {
  const Turn turn(state_->mutex);
  std::vector<SkillRecord> records;
  for (const auto& id : ids) records.push_back(state_->components.skills.require(id));
  return records;
}

SkillSummary SkillsEngine::detachSource(const std::string& id) {
  const State::ChangeTurn turn(*state_);
  return state_->components.updates.detach(id);
}

SkillSummary SkillsEngine::relinkSource(const std::string& id, const std::string& url,
                                        const std::optional<std::string>& subpath) {
  const State::ChangeTurn turn(*state_);
  return state_->components.updates.relink(id, url, subpath);
}

}  // namespace orvanta
