#include "engine/UndeployBatch.h"

#include <map>
#include <set>

#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

constexpr const char* kKept = "kept: still used by another agent";
constexpr const char* kPreserved = "preserved: no longer matches the recorded deployment";

struct Skill {
  std::string name;
  std::string centralPath;
};

std::map<std::string, Skill> skillsById(Library& library) {
  std::map<std::string, Skill> skills;
  library.store.connection().forEach("SELECT id, name, central_path FROM skills", {}, [&](const SQLRow& row) {
    skills.emplace(row.text(0), Skill{std::string(row.text(1)), std::string(row.text(2))});
  });
  return skills;
}

}  // namespace

UndeployBatch::UndeployBatch(Library& library, std::vector<SkillTarget> records)
    : index_(library.store.allTargets(), resolver_), changes_(library) {
  const auto skills = skillsById(library);
  pairs_.reserve(records.size());
  for (auto& record : records) {
    Pair pair;
    const auto skill = skills.find(record.skillId);
    pair.skillName = skill == skills.end() ? record.skillId : skill->second.name;
    if (skill != skills.end()) pair.centralPath = skill->second.centralPath;
    pair.record = std::move(record);
    pairs_.push_back(std::move(pair));
  }
}

Plan UndeployBatch::plan() {
  Plan plan;
  for (const auto& pair : pairs_) {
    const Fate fate = fateOf(pair);
    const bool isGone = fate == Fate::clear || fate == Fate::absent;
    PlannedStep step{.action = isGone ? PlannedStep::Action::remove : PlannedStep::Action::keep,
                     .skillName = pair.skillName,
                     .skillId = pair.record.skillId,
                     .tool = pair.record.tool,
                     .path = pair.record.targetPath,
                     .reason = {}};
    if (fate == Fate::kept) step.reason = kKept;
    if (fate == Fate::preserved) step.reason = kPreserved;
    if (fate == Fate::absent) step.reason = "only the record: nothing of ours stands there";
    plan.push_back(step);
    if (const SkillTarget* known = index_.find(pair.record.skillId, pair.record.tool)) index_.remove(*known);
  }
  return plan;
}

void UndeployBatch::takeOut(const OperationContext& context) {
  std::size_t finished = 0;
  for (auto& pair : pairs_) {
    if (context.stop.stop_requested()) break;
    prepare(pair);
    context.report("Removing", ++finished, pairs_.size());
  }
  changes_.makeEach(pairs_, [](Pair& pair, const SkillsError& error) {
    pair.cleared = false;
    pair.failed = true;
    pair.note = "remove failed: " + error.message();
  });
}

void UndeployBatch::keep() {
  for (auto& pair : pairs_) pair.change.keep();
}

UndeployBatch::Fate UndeployBatch::fateOf(const Pair& pair) {
  const SkillTarget& record = pair.record;
  // A disabled skill's files were taken out when it was disabled. A link to the library is ours all the same: a process
  // that was killed while it enabled the skill leaves one.
  const bool isOurs =
      record.status != kTargetDisabled || SyncEngine::symlinkPointsTo(record.targetPath, pair.centralPath);
  if (!isOurs || !FS::exists(record.targetPath)) return Fate::absent;
  if (index_.otherAt(index_.place(record.targetPath), record.skillId, record.tool) != nullptr) return Fate::kept;
  const bool matches =
      record.status == kTargetDisabled || SyncEngine::matchesRecordedDeployment(record.targetPath, record.mode);
  return matches ? Fate::clear : Fate::preserved;
}

// A place shared by several records of the list goes with the last of them.
void UndeployBatch::prepare(Pair& pair) {
  const Fate fate = fateOf(pair);
  pair.cleared = fate == Fate::clear || fate == Fate::absent;
  pair.isShared = fate == Fate::kept;
  if (fate == Fate::kept) pair.note = kKept;
  if (fate == Fate::preserved) pair.note = kPreserved;
  if (fate == Fate::clear) {
    pair.change = pair.record.status == kTargetDisabled
                      ? TargetChange::removal(pair.record.targetPath, FS::Kind::symlink)
                      : SyncEngine::prepareRemoval(pair.record.targetPath, pair.record.mode);
  }
  if (const SkillTarget* known = index_.find(pair.record.skillId, pair.record.tool)) index_.remove(*known);
  pair.done = true;
}

}  // namespace orvanta
