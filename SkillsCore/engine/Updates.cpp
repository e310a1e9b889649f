#include "engine/Updates.h"

#include <algorithm>
#include <filesystem>

#include "content/ContentHash.h"
#include "engine/CentralSwap.h"
#include "engine/PlanOrRefusal.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "files/TreeCopy.h"
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

bool isMark(UpdateStatus status) { return status == UpdateStatus::checking || status == UpdateStatus::updating; }

std::optional<std::string> hashOf(const fs::path& folder) {
  return FS::resolvesToDirectory(folder) ? std::optional(ContentHash::hashDirectory(folder)) : std::nullopt;
}

[[noreturn]] void throwChangedMeanwhile(const SkillRecord& skill) {
  throw SkillsError::conflict("'" + skill.name + "' was changed while its update was fetched; update it again");
}

// A folder's path in a repository as installing records it; none for the repository itself.
std::optional<std::string> normalSubpath(const std::string& subpath) {
  const fs::path path(subpath);
  const bool leaves = path.is_absolute() || std::find(path.begin(), path.end(), "..") != path.end();
  if (leaves || !Text::isValidUTF8(subpath) || subpath.find('\0') != std::string::npos) {
    throw SkillsError::invalidInput("'" + subpath +
                                    "' is no path inside a repository; give one without '..', such as skills/pdf");
  }
  const std::string normal = fsPath(path.lexically_normal());
  return normal.empty() || normal == "." ? std::nullopt : std::optional(normal);
}

}  // namespace

Updates::Statuses Updates::mark(const std::vector<std::string>& ids, UpdateStatus status) {
  Statuses before;
  library_.transaction([&] {
    for (const auto& id : ids) {
      const auto record = library_.store.skill(id);
      if (!record) continue;
      before.emplace(id, isMark(record->updateStatus) ? UpdateStatus::unknown : record->updateStatus);
      library_.store.setUpdateStatus(id, {.status = status});
    }
  });
  return before;
}

void Updates::restore(const Statuses& statuses, UpdateStatus mark) {
  library_.transaction([&] {
    for (const auto& [id, status] : statuses) {
      const auto record = library_.store.skill(id);
      if (record && record->updateStatus == mark) library_.store.setUpdateStatus(id, {.status = status});
    }
  });
}

void Updates::record(const std::vector<CheckOutcome>& outcomes, UpdateCheckReport& report) {
  library_.transaction([&] {
    for (const auto& outcome : outcomes) {
      const auto skill = library_.store.skill(outcome.skill->id);
      if (!skill || !hasSameOrigin(*skill, *outcome.skill)) continue;
      SkillStore::UpdateCheck check{.status = outcome.status, .checkedAt = nowMillis()};
      if (outcome.found) {
        // Compared with what the skill is now: it may have been updated while its source was asked.
        const bool isCurrent = outcome.found == ownVersion(*skill);
        check.status = isCurrent ? UpdateStatus::upToDate : UpdateStatus::available;
        if (isRemote(skill->sourceType)) check.remoteRevision = outcome.found;
      }
      check.error.emplace(outcome.error);  // none clears that of an earlier check
      library_.store.setUpdateStatus(skill->id, check);
      report.statuses[skill->id] = check.status;
      if (outcome.error) report.errors[skill->id] = *outcome.error;
    }
  });
}

void Updates::recordFailure(const FetchFailure& failure) {
  library_.transaction([&] {
    const auto skill = library_.store.skill(failure.skill.id);
    if (!skill || !hasSameOrigin(*skill, failure.skill)) return;
    library_.store.setUpdateStatus(
        skill->id,
        {.status = failure.status, .error = std::optional(failure.error.message()), .checkedAt = nowMillis()});
    library_.store.logAudit({.action = actionFor(*skill),
                             .skillId = skill->id,
                             .skillName = skill->name,
                             .success = false,
                             .detail = failure.error.message()});
  });
}

std::unique_ptr<StagingFolder> Updates::broughtNear(const Paths& paths, const IncomingUpdate& update) {
  auto near = std::make_unique<StagingFolder>(paths.skills());
  if (update.changesNothing()) return near;
  try {
    FS::renameExclusive(update.folder(), near->slot(0));
  } catch (const SkillsError&) {  // temporary folders can lie on another file system
    FS::copySkillTree(update.folder(), near->slot(0));
  }
  return near;
}

bool Updates::bringIn(const IncomingUpdate& update, const StagingFolder& near) {
  const SkillRecord record = requireSameOrigin(update);
  const bool cameAlready = update.hash == record.contentHash && update.skill().contentHash != record.contentHash;
  if (update.changesNothing() || cameAlready) {
    library_.transaction([&] { recordArrival(record, update, /*isReplaced=*/false); });
    // An update that came before may have been ended before its copies followed.
    if (!repair_.staleCopies(record, record.contentHash).empty()) repair_.resyncCopyTargets(record);
    return false;
  }
  refuseRepository(record.centralPath, kRepositoryAdvice);
  const SkillMeta before = Skills::metadataBefore(record, record.centralPath);
  CentralSwap swap(near.slot(0), record.centralPath);
  // Looked at when nobody can write there any more.
  if (hashOf(swap.replaced()) != update.libraryHash) throwChangedMeanwhile(record);
  const SkillRecord fresh = library_.transaction([&] {
    SkillRecord refreshed = skills_.refreshRecordFromDisk(record, before);
    recordArrival(refreshed, update, /*isReplaced=*/true);
    return refreshed;
  });
  swap.keep();
  repair_.resyncCopyTargets(fresh);
  return true;
}

Plan Updates::plan(const IncomingUpdate& update) {
  const SkillRecord& fetched = update.skill();
  return planOrRefusal(fetched.centralPath, [&]() -> Plan {
    const SkillRecord record = requireSameOrigin(update);
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

SkillRecord Updates::requireSameOrigin(const IncomingUpdate& update) {
  SkillRecord record = skills_.require(update.skill().id);
  if (record.centralPath != update.skill().centralPath || !hasSameOrigin(record, update.skill())) {
    throwChangedMeanwhile(record);
  }
  return record;
}

void Updates::recordArrival(SkillRecord record, const IncomingUpdate& update, bool isReplaced) {
  if (update.revision) record.sourceRevision = record.remoteRevision = update.revision;
  record.updateStatus = UpdateStatus::upToDate;
  record.lastCheckedAt = nowMillis();
  record.lastCheckError.reset();
  library_.store.updateSkill(record);
  const auto source = update.revision ? update.revision : record.sourceRef;
  library_.store.logAudit({.action = actionFor(record),
                           .skillId = record.id,
                           .skillName = record.name,
                           .detail = isReplaced ? source : "no content change"});
}

SkillSummary Updates::detach(const std::string& id) {
  SkillRecord record = skills_.require(id);
  const auto source = record.sourceRef;
  record.sourceType = SourceType::local;
  record.sourceRef.reset();
  record.sourceRefResolved.reset();
  record.sourceSubpath.reset();
  record.sourceBranch.reset();
  record.updateStatus = UpdateStatus::localOnly;
  return changeSource(record, "detach_source", source);
}

SkillSummary Updates::relink(const std::string& id, const std::string& url, const std::optional<std::string>& subpath) {
  GitSource::validate(url);
  const ParsedGitSource source = GitSource::parse(url);
  SkillRecord record = skills_.require(id);
  record.sourceType = SourceType::git;
  record.sourceRef = GitSource::withoutCredentials(source.originalURL);
  record.sourceRefResolved = GitSource::withoutCredentials(source.cloneURL);
  record.sourceBranch = source.branch;
  record.sourceSubpath = normalSubpath(subpath.value_or(source.subpath.value_or("")));
  record.updateStatus = UpdateStatus::unknown;
  return changeSource(record, "relink_source", record.sourceRef);
}

// Which commit of a new source the skill's content is from is not known, so the next check offers what is there.
SkillSummary Updates::changeSource(SkillRecord record, const std::string& action,
                                   const std::optional<std::string>& source) {
  record.sourceRevision.reset();
  record.remoteRevision.reset();
  record.lastCheckedAt.reset();
  record.lastCheckError.reset();
  record.updatedAt = nowMillis();
  library_.transaction([&] {
    library_.store.updateSkill(record);
    library_.store.logAudit({.action = action, .skillId = record.id, .skillName = record.name, .detail = source});
  });
  return skills_.summary(record.id);
}

}  // namespace orvanta
