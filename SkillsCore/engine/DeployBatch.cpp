#include "engine/DeployBatch.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <unordered_map>

#include "content/ContentHash.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/Parallel.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

std::optional<SkillsError> failureOf(const ToolAdapter& adapter, const ToolOverrides& overrides,
                                     const Library& library) {
  if (!adapter.isInstalled(library.user)) return SkillsError::refused(adapter.displayName + " is not installed");
  if (overrides.disabled.contains(adapter.key)) {
    return SkillsError::refused(adapter.displayName + " is disabled in Settings");
  }
  const fs::path folder = adapter.skillsDir(library.user);
  if (isInside(FS::resolved(folder), FS::resolved(library.paths.base()))) {
    return SkillsError::invalidInput(adapter.displayName + "'s skills folder " + folder.string() +
                                     " lies inside the library; give it another with 'agent path'");
  }
  return std::nullopt;
}

PlannedStep stepFor(const DeployBatch::Pair& pair) {
  return {.action = Action::refused,
          .skillName = pair.name(),
          .skillId = pair.skillId,
          .tool = pair.tool,
          .path = pair.target.string(),
          .reason = {}};
}

SkillsError takenByOther(const fs::path& target) {
  return SkillsError::refused(SyncEngine::refusalMessage(target, "is where another skill of the library is deployed"));
}

template <typename Value>
const Value* lookUp(const std::map<std::string, Value>& map, const std::string& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}

}  // namespace

std::optional<SkillsError> whyUndeployable(const SkillRecord& skill) {
  if (!skill.enabled) return SkillsError::refused("'" + skill.name + "' is disabled; enable it first");
  if (!FS::resolvesToDirectory(skill.centralPath)) {
    return SkillsError::notFound("Library directory missing for '" + skill.name + "'");
  }
  return std::nullopt;
}

DeployBatch::DeployBatch(Library& library, DeployRequest request)
    : library_(library),
      force_(request.force),
      keepsIntact_(request.keepsIntact),
      mode_(request.mode.value_or(library.store.syncMode())),
      index_(library.store.allTargets(), resolver_),
      changes_(library) {
  std::set<std::string> skillIds;
  std::set<std::string> tools;
  for (const auto& pair : request.pairs) {
    skillIds.insert(pair.skillId);
    tools.insert(pair.tool);
  }
  readSkills(skillIds);
  readAgents(tools);
  pairs_.reserve(request.pairs.size());
  for (auto& pair : request.pairs) pairs_.push_back(makePair(std::move(pair)));
  if (mode_ == SyncMode::copy) hashForCopies();
}

void DeployBatch::readSkills(const std::set<std::string>& wanted) {
  if (wanted.size() == 1) {
    if (const auto skill = library_.store.skill(*wanted.begin())) skills_.emplace(skill->id, *skill);
  } else {
    for (const auto& skill : library_.store.allSkills()) {
      if (wanted.contains(skill.id)) skills_.emplace(skill.id, skill);
    }
  }
  for (const auto& [id, skill] : skills_) {
    dirNames_.emplace(id, SyncEngine::targetDirName(skill.centralPath, skill.name));
  }
  for (const auto& id : wanted) {
    const SkillRecord* skill = lookUp(skills_, id);
    const auto failure = skill != nullptr ? whyUndeployable(*skill) : SkillsError::notFound("Skill not found: " + id);
    if (failure) skillFailures_.emplace(id, *failure);
  }
}

void DeployBatch::readAgents(const std::set<std::string>& tools) {
  const ToolOverrides overrides = library_.store.toolOverrides();
  const auto all = ToolAdapters::all(overrides);
  for (const auto& tool : tools) {
    const auto adapter =
        std::find_if(all.begin(), all.end(), [&](const ToolAdapter& known) { return known.key == tool; });
    if (adapter == all.end()) {
      agentFailures_.emplace(tool, SkillsError::notFound("Agent not found: " + tool));
      continue;
    }
    adapters_.emplace(tool, *adapter);
    const fs::path folder = adapter->skillsDir(library_.user);
    folders_.emplace(tool, Folder{fsPath(folder) + "/", fsPath(resolver_.resolve(folder)) + "/"});
    if (const auto failure = failureOf(*adapter, overrides, library_)) agentFailures_.emplace(tool, *failure);
    // What lies in a copy goes with it.
    if (const SkillTarget* copy = index_.copyAround(folders_.at(tool).place)) {
      agentFailures_.emplace(tool,
                             SkillsError::invalidInput(adapter->displayName + "'s skills folder lies inside the copy " +
                                                       copy->targetPath + "; give it another with 'agent path'"));
    }
  }
}

void DeployBatch::hashForCopies() {
  for (const auto& pair : pairs_) {
    if (!pair.failure && !(keepsIntact_ && isIntact(pair))) currentHashes_.try_emplace(pair.skillId);
  }
  std::vector<fs::path> folders;
  for (const auto& [id, hash] : currentHashes_) folders.emplace_back(skills_.at(id).centralPath);
  auto hashes = ContentHash::hashDirectories(folders);
  std::size_t i = 0;
  for (auto& [id, hash] : currentHashes_) hash = std::move(hashes[i++]);
}

DeployBatch::Pair DeployBatch::makePair(SkillToolPair names) const {
  Pair pair;
  pair.skillId = std::move(names.skillId);
  pair.tool = std::move(names.tool);
  pair.skill = lookUp(skills_, pair.skillId);
  pair.adapter = lookUp(adapters_, pair.tool);
  pair.record = index_.find(pair.skillId, pair.tool);
  const SkillsError* failure =
      pair.skill == nullptr ? lookUp(skillFailures_, pair.skillId) : lookUp(agentFailures_, pair.tool);
  if (failure == nullptr) failure = lookUp(skillFailures_, pair.skillId);
  if (failure != nullptr) {
    pair.failure = *failure;
    return pair;
  }
  const Folder& folder = folders_.at(pair.tool);
  const std::string& name = dirNames_.at(pair.skillId);
  pair.target = folder.path + name;
  pair.place = folder.place + name;
  return pair;
}

Plan DeployBatch::plan(const Plan& removals) {
  Plan plan;
  std::set<std::string> cleared;
  for (const auto& step : removals) {
    if (step.action == Action::remove && !step.reason) cleared.insert(index_.place(step.path));
  }
  std::set<std::string> filled;  // places that an earlier pair of this plan fills for the same skill
  std::vector<Pair*> possible;
  for (auto& pair : pairs_) {
    PlannedStep step = stepFor(pair);
    try {
      if (pair.failure) throw SkillsError(*pair.failure);
      const Need need = cleared.contains(pair.place) ? Need{.action = Action::place} : examine(pair);
      step.action = filled.insert(pair.place + '\n' + pair.skillId).second ? need.action : Action::keep;
      possible.push_back(&pair);
    } catch (const SkillsError& error) {
      step.reason = error.message();
    }
    plan.push_back(step);
  }
  for (const Pair* pair : leavingOldFolders(possible)) {
    PlannedStep step = stepFor(*pair);
    step.action = Action::remove;
    step.path = pair->record->targetPath;
    plan.push_back(step);
  }
  return plan;
}

void DeployBatch::place(const OperationContext& context) {
  prepareAll(context);
  std::vector<Pair*> prepared;
  for (auto& pair : pairs_) {
    if (pair.isPrepared) prepared.push_back(&pair);
  }
  const auto leaving = leavingOldFolders(prepared);
  makeAll();
  takeAwayOldPlacements(leaving);
}

void DeployBatch::prepareAll(const OperationContext& context) {
  const auto groups = groupsByPlace();
  std::mutex progress;
  std::size_t finished = 0;
  parallelFor(groups.size(), [&](std::size_t g) {
    const Pair* sharing = nullptr;
    for (const std::size_t i : groups[g]) {
      if (context.stop.stop_requested()) return;
      preparePair(pairs_[i], sharing);
      if (pairs_[i].isPrepared) sharing = &pairs_[i];
    }
    const std::lock_guard lock(progress);
    finished += groups[g].size();
    context.report("Deploying", finished, pairs_.size());
  });
}

void DeployBatch::makeAll() {
  changes_.makeEach(pairs_, [](Pair& pair, const SkillsError& error) { pair.failure = error; });
  for (auto& pair : pairs_) {
    if (pair.sharing != nullptr && pair.sharing->failure) pair.failure = pair.sharing->failure;
    pair.done = pair.isPrepared && !pair.failure;
  }
}

void DeployBatch::keep() {
  for (auto& pair : pairs_) {
    pair.change.keep();
    pair.oldPlacement.keep();
  }
}

// Pairs whose agents share a folder come after one another; all others are independent.
std::vector<std::vector<std::size_t>> DeployBatch::groupsByPlace() const {
  std::vector<std::vector<std::size_t>> groups;
  std::unordered_map<std::string, std::size_t> byPlace;
  for (std::size_t i = 0; i < pairs_.size(); ++i) {
    if (pairs_[i].failure) continue;
    const auto [group, isNew] = byPlace.emplace(pairs_[i].place, groups.size());
    if (isNew) groups.emplace_back();
    groups[group->second].push_back(i);
  }
  return groups;
}

// Throws what refuses the pair, with nothing changed.
DeployBatch::Need DeployBatch::examine(const Pair& pair) {
  if (keepsIntact_ && isIntact(pair)) {
    return {.action = Action::keep, .mode = pair.record->mode, .sourceHash = pair.record->sourceHash};
  }
  if (const SkillTarget* other = index_.otherAt(pair.place, pair.skillId, pair.tool)) {
    return needBesideOther(pair, *other);
  }
  Need need{.action = Action::keep, .mode = mode_, .sourceHash = hashOf(pair)};
  if (isInPlace(pair)) return need;
  const ReplacePolicy unrecorded = force_ ? ReplacePolicy::userConfirmed() : ReplacePolicy::noClobber();
  const ReplacePolicy policy = isRecordedAtTarget(pair) ? ReplacePolicy::recorded(pair.record->mode) : unrecorded;
  need.found = SyncEngine::preflightReplace(pair.skill->centralPath, pair.target, mode_, policy, resolver_);
  need.action = need.found == TargetState::absent ? Action::place : Action::replace;
  if (need.found == TargetState::realDir && !force_) {
    refuseRepository(pair.target, "Move the repository away, or deploy with --force.");
  }
  return need;
}

// What another agent's record says stands at the place decides: it is shared as it is, or put there in the same mode
// where it is missing, and never replaced.
DeployBatch::Need DeployBatch::needBesideOther(const Pair& pair, const SkillTarget& other) {
  if (other.skillId != pair.skillId) {
    throw takenByOther(pair.target);
  }
  const bool standsThere = other.mode == SyncMode::symlink
                               ? SyncEngine::symlinkPointsTo(pair.target, pair.skill->centralPath)
                               : SyncEngine::matchesRecordedDeployment(pair.target, SyncMode::copy);
  // Nothing is copied: the content is what it was when the other agent's copy was made.
  if (standsThere) return {.action = Action::keep, .mode = other.mode, .sourceHash = other.sourceHash};
  const TargetState found = SyncEngine::preflightReplace(pair.skill->centralPath, pair.target, other.mode,
                                                         ReplacePolicy::noClobber(), resolver_);
  return {.action = Action::place, .mode = other.mode, .found = found, .sourceHash = hashOf(pair)};
}

// A record speaks for the place it names only, and only while the skill stands there.
bool DeployBatch::isRecordedAtTarget(const Pair& pair) const {
  if (pair.record == nullptr || pair.record->status == kTargetDisabled) return false;
  return pair.record->targetPath == pair.target.native() || index_.place(pair.record->targetPath) == pair.place;
}

// What is recorded stands there, however old its content is.
bool DeployBatch::isIntact(const Pair& pair) const {
  if (!isRecordedAtTarget(pair) || pair.record->status != kTargetOk) return false;
  return pair.record->mode == SyncMode::symlink ? SyncEngine::symlinkPointsTo(pair.target, pair.skill->centralPath)
                                                : FS::isDirectory(pair.target);
}

bool DeployBatch::isInPlace(const Pair& pair) const {
  if (mode_ == SyncMode::symlink) return SyncEngine::symlinkPointsTo(pair.target, pair.skill->centralPath);
  return isRecordedAtTarget(pair) && pair.record->mode == SyncMode::copy && FS::isDirectory(pair.target) &&
         SyncEngine::isTargetCurrent(pair.skill->centralPath, pair.target, SyncMode::copy, pair.record->sourceHash,
                                     currentHashes_.at(pair.skillId));
}

std::vector<DeployBatch::Pair*> DeployBatch::leavingOldFolders(const std::vector<Pair*>& placed) {
  std::vector<Pair*> leaving;
  for (Pair* pair : placed) {
    if (pair->record == nullptr || pair->record->status == kTargetDisabled || isRecordedAtTarget(*pair)) continue;
    index_.remove(*pair->record);  // agents that shared the old folder and move together do not protect it
    leaving.push_back(pair);
  }
  std::erase_if(leaving, [&](const Pair* pair) {
    const SkillTarget& old = *pair->record;
    if (index_.otherAt(index_.place(old.targetPath), pair->skillId, pair->tool) != nullptr) return true;
    return old.mode == SyncMode::symlink ? !SyncEngine::symlinkPointsTo(old.targetPath, pair->skill->centralPath)
                                         : !SyncEngine::matchesRecordedDeployment(old.targetPath, SyncMode::copy);
  });
  return leaving;
}

// The skills stand in the new folders by then; an old placement that cannot be removed is no reason to undo that. What
// failed to move, or has just been placed, keeps its place.
void DeployBatch::takeAwayOldPlacements(const std::vector<Pair*>& leaving) {
  if (leaving.empty()) return;
  std::set<std::string> held;
  for (const auto& pair : pairs_) {
    if (pair.done) held.insert(pair.place);
    if (pair.failure && pair.record != nullptr) held.insert(index_.place(pair.record->targetPath));
  }
  std::vector<TargetChange*> changes;
  std::vector<Pair*> moving;
  for (Pair* pair : leaving) {
    if (!pair->done || held.contains(index_.place(pair->record->targetPath))) continue;
    pair->oldPlacement = SyncEngine::prepareRemoval(pair->record->targetPath, pair->record->mode);
    changes.push_back(&pair->oldPlacement);
    moving.push_back(pair);
  }
  changes_.make(changes, [&](std::size_t i, const SkillsError& error) { moving[i]->oldFailure = error; });
}

std::optional<std::string> DeployBatch::hashOf(const Pair& pair) const {
  if (const auto* current = lookUp(currentHashes_, pair.skillId)) return *current;
  return pair.skill->contentHash;
}

// `sharing` is the pair before this one that is given the same place.
void DeployBatch::preparePair(Pair& pair, const Pair* sharing) {
  try {
    Need need;
    if (sharing == nullptr) {
      need = examine(pair);
    } else if (sharing->skillId == pair.skillId) {
      pair.sharing = sharing;
      need.mode = sharing->mode;
      need.sourceHash = sharing->sourceHash;
    } else {
      throw takenByOther(pair.target);
    }
    if (need.action != Action::keep) {
      pair.change = SyncEngine::prepareAt(pair.skill->centralPath, pair.target, need.mode, need.found);
    }
    pair.mode = need.mode;
    pair.action = need.action;
    pair.sourceHash = need.sourceHash;
    pair.isPrepared = true;
  } catch (const SkillsError& error) {
    pair.failure = error;
  }
}

SkillTarget DeployBatch::recordOf(const Pair& pair) {
  return {.id = pair.record != nullptr ? pair.record->id : newUuid(),
          .skillId = pair.skillId,
          .tool = pair.tool,
          .targetPath = pair.target.string(),
          .mode = pair.mode,
          .status = std::string(kTargetOk),
          .syncedAt = nowMillis(),
          .lastError = {},
          .sourceHash = pair.sourceHash};
}

bool DeployBatch::isRecorded(const Pair& pair) {
  if (pair.record == nullptr || pair.action != Action::keep) return false;
  const SkillTarget& known = *pair.record;
  // What a link points to is always current; the hash at the time of linking says nothing.
  const bool sameContent = pair.mode == SyncMode::symlink || known.sourceHash == pair.sourceHash;
  return sameContent && known.mode == pair.mode && known.status == kTargetOk && !known.lastError &&
         known.targetPath == pair.target.native();
}

}  // namespace orvanta
