#include "engine/Updates.h"

#include <algorithm>
#include <filesystem>

#include "content/ContentHash.h"
#include "engine/CentralSwap.h"
#include "engine/PlanOrRefusal.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "sources/GitSource.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

constexpr auto kRepositoryAdvice = "Move the repository away and update again.";

// What a skill of this record has of what its source offers.
std::optional<std::string> ownVersion(const SkillRecord& skill) {
  return isRemote(skill.sourceType) ? skill.sourceRevision : skill.contentHash;
}

std::string actionFor(const SkillRecord& skill) { return isRemote(skill.sourceType) ? "update" : "reimport"; }

void requireInside(const std::string& subpath) {
  const fs::path path(subpath);
  const bool leaves = path.is_absolute() || std::find(path.begin(), path.end(), "..") != path.end();
  if (leaves || !Text::isValidUTF8(subpath) || subpath.find('\0') != std::string::npos) {
    throw SkillsError::invalidInput("'" + subpath +
                                    "' is no path inside a repository; give one without '..', such as " + "skills/pdf");
  }
}

}  // namespace

Updates::Statuses Updates::mark(const std::vector<std::string>& ids, UpdateStatus status) {
  Statuses before;
  library_.transaction([&] {
    for (const auto& id : ids) {
      const auto record = library_.store.skill(id);
      if (!record) continue;
      before.emplace(id, record->updateStatus);
      library_.store.setUpdateStatus(id, {.status = status});
    }
  });
  return before;
}

void Updates::restore(const Statuses& statuses) {
  library_.transaction([&] {
    for (const auto& [id, status] : statuses) library_.store.setUpdateStatus(id, {.status = status});
  });
}

void Updates::record(const std::vector<CheckOutcome>& outcomes, UpdateCheckReport& report) {
  library_.transaction([&] {
    for (const auto& outcome : outcomes) {
      const auto skill = library_.store.skill(outcome.skillId);
      if (!skill) continue;  // removed meanwhile
      SkillStore::UpdateCheck check{.status = outcome.status, .checkedAt = nowMillis()};
      if (outcome.found) {
        // Compared with what the skill is now: it may have been updated while its source was asked.
        const bool isCurrent = outcome.found == ownVersion(*skill);
        check.status = isCurrent ? UpdateStatus::upToDate : UpdateStatus::available;
        if (isRemote(skill->sourceType)) check.remoteRevision = outcome.found;
      }
      check.error = outcome.error;
      library_.store.setUpdateStatus(skill->id, check);
      report.statuses[skill->id] = check.status;
      if (outcome.error) report.errors[skill->id] = *outcome.error;
    }
  });
}

void Updates::recordFailure(const std::string& id, const FetchFailure& failure) {
  library_.transaction([&] {
    const auto skill = library_.store.skill(id);
    if (!skill) return;
    library_.store.setUpdateStatus(
        id, {.status = failure.status, .error = std::optional(failure.error.message()), .checkedAt = nowMillis()});
    library_.store.logAudit({.action = actionFor(*skill),
                             .skillId = id,
                             .skillName = skill->name,
                             .success = false,
                             .detail = failure.error.message()});
  });
}

bool Updates::bringIn(const IncomingUpdate& update) {
  const SkillRecord record = requireAsFetched(update);
  const bool cameAlready = update.hash == record.contentHash && update.skill().contentHash != record.contentHash;
  if (update.changesNothing() || cameAlready) {
    library_.transaction([&] { recordArrival(record, update); });
    return false;
  }
  refuseRepository(record.centralPath, kRepositoryAdvice);
  const SkillMeta before = Skills::metadataBefore(record, record.centralPath);
  CentralSwap swap(update.folder(), record.centralPath);
  const SkillRecord fresh = library_.transaction([&] {
    SkillRecord refreshed = skills_.refreshRecordFromDisk(record, before);
    recordArrival(refreshed, update);
    return refreshed;
  });
  swap.keep();
  repair_.resyncCopyTargets(fresh);
  return true;
}

Plan Updates::plan(const IncomingUpdate& update) {
  const SkillRecord& fetched = update.skill();
  return planOrRefusal(fetched.centralPath, [&]() -> Plan {
    const SkillRecord record = requireAsFetched(update);
    PlannedStep step{.action = FS::exists(record.centralPath) ? Action::replace : Action::place,
                     .skillName = record.name,
                     .skillId = record.id,
                     .tool = {},
                     .path = record.centralPath,
                     .reason = {}};
    if (update.changesNothing()) {
      step.action = Action::keep;
      step.reason = "nothing new";
      return {step};
    }
    refuseRepository(record.centralPath, kRepositoryAdvice);
    Plan plan{step};
    for (const auto& copy : repair_.staleCopies(record, update.hash)) {
      step.tool = copy.tool;
      step.path = copy.targetPath;
      plan.push_back(step);
    }
    return plan;
  });
}

// The record of the skill, whose folder in the library is what it was when the update was fetched, or has the update
// already.
SkillRecord Updates::requireAsFetched(const IncomingUpdate& update) {
  SkillRecord record = skills_.require(update.skill().id);
  const bool isThere = FS::resolvesToDirectory(record.centralPath);
  const auto hash = isThere ? std::optional(ContentHash::hashDirectory(record.centralPath)) : std::nullopt;
  const bool isSameSkill =
      record.centralPath == update.skill().centralPath && record.sourceType == update.skill().sourceType &&
      record.sourceRefResolved == update.skill().sourceRefResolved && record.sourceRef == update.skill().sourceRef;
  if (isSameSkill && (hash == update.libraryHash || hash == update.hash)) return record;
  throw SkillsError::conflict("'" + record.name + "' was changed while its update was fetched; update it again");
}

void Updates::recordArrival(SkillRecord record, const IncomingUpdate& update) {
  const bool isNew = update.hash != update.skill().contentHash;
  if (update.revision) record.sourceRevision = record.remoteRevision = update.revision;
  record.updateStatus = UpdateStatus::upToDate;
  record.lastCheckedAt = nowMillis();
  record.lastCheckError.reset();
  library_.store.updateSkill(record);
  library_.store.logAudit({.action = actionFor(record),
                           .skillId = record.id,
                           .skillName = record.name,
                           .detail = isNew ? update.revision : "no content change"});
}

SkillSummary Updates::detach(const std::string& id) {
  SkillRecord record = skills_.require(id);
  record.sourceType = SourceType::local;
  record.sourceRef.reset();
  record.sourceRefResolved.reset();
  record.sourceSubpath.reset();
  record.sourceBranch.reset();
  record.updateStatus = UpdateStatus::localOnly;
  return changeSource(record, "detach_source");
}

SkillSummary Updates::relink(const std::string& id, const std::string& url, const std::optional<std::string>& subpath) {
  GitSource::validate(url);
  const ParsedGitSource source = GitSource::parse(url);
  SkillRecord record = skills_.require(id);
  record.sourceType = SourceType::git;
  record.sourceRef = GitSource::withoutCredentials(source.originalURL);
  record.sourceRefResolved = GitSource::withoutCredentials(source.cloneURL);
  record.sourceBranch = source.branch;
  record.sourceSubpath = subpath ? subpath : source.subpath;
  if (record.sourceSubpath) requireInside(*record.sourceSubpath);
  record.updateStatus = UpdateStatus::unknown;
  return changeSource(record, "relink_source");
}

// Which commit of a new source the skill's content is from is not known, so the next check offers what is there.
SkillSummary Updates::changeSource(SkillRecord record, const std::string& action) {
  record.sourceRevision.reset();
  record.remoteRevision.reset();
  record.lastCheckedAt.reset();
  record.lastCheckError.reset();
  record.updatedAt = nowMillis();
  library_.transaction([&] {
    library_.store.updateSkill(record);
    library_.store.logAudit(
        {.action = action, .skillId = record.id, .skillName = record.name, .detail = record.sourceRef});
  });
  return skills_.summary(record.id);
}

}  // namespace orvanta
