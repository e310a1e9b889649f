#include "engine/Relinking.h"

#include <map>
#include <set>

#include "agents/SyncEngine.h"
#include "engine/Workspace.h"
#include "files/FS.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

std::vector<Relinking::Item> Relinking::items() {
  std::map<std::string, SkillRecord> skills;
  for (auto& skill : store_.allSkills()) skills.emplace(skill.id, std::move(skill));
  std::vector<Item> items;
  for (auto& record : store_.allTargets()) {
    if (record.status != kTargetOk || record.mode != SyncMode::symlink) continue;
    const auto skill = skills.find(record.skillId);
    if (skill == skills.end()) continue;
    const fs::path name = fs::path(fsPath(skill->second.centralPath)).filename();
    items.push_back({.record = std::move(record),
                     .skillName = skill->second.name,
                     .oldPlace = from_.skills() / name,
                     .newPlace = to_.skills() / name});
  }
  return items;
}

// Judged by what the link says: while the old skills folder is itself a link to the new one, both lead to one folder.
// Throws why a link that is recorded is not there to be replaced.
bool Relinking::leadsToOldPlace(const Item& item) {
  const fs::path target = item.record.targetPath;
  if (FS::isCertainlyAbsent(target)) return false;
  const auto destination = FS::linkDestination(target);
  if (!destination) {
    throw SkillsError::refused(SyncEngine::refusalMessage(target, "does not match its recorded deployment"));
  }
  if (*destination == item.newPlace) return false;
  if (*destination == item.oldPlace) return true;
  const fs::path end = FS::resolved(*destination);
  if (end == FS::resolved(item.oldPlace) || end == FS::resolved(item.newPlace)) return true;
  throw SkillsError::refused(SyncEngine::refusalMessage(target, "leads to another place than the library's"));
}

Relinking::Report Relinking::run() {
  Report report;
  relinkDeployments(report);
  relinkProjects(report);
  for (const auto& folder : folders_) {
    sweepStages(folder);  // what could not be removed at once
    FS::flushFolder(folder);
  }
  return report;
}

// Each is final at once: until the last is done, the old place leads to the new one.
void Relinking::relink(const fs::path& link, const fs::path& destination, Report& report) {
  TargetChange change = TargetChange::link(destination, link, FS::Kind::symlink);
  change.make();
  change.finish();
  folders_.insert(link.parent_path());
  ++report.relinked;
}

// What a process left that was killed while it replaced a link: the new one, or the old one on its way out.
void Relinking::clearUp(const fs::path& folder) {
  sweepStages(folder);
  for (const auto& name : FS::childNames(folder)) {
    if (!isStageName(name)) continue;
    const fs::path place = FS::linkDestination(folder / name).value_or("/").parent_path();
    if (place == from_.skills() || place == to_.skills()) FS::removeQuietly(folder / name);
  }
}

void Relinking::relinkDeployments(Report& report) {
  SyncEngine::FolderResolver resolver;
  std::vector<SkillTarget> broken;
  std::set<std::string> folders;
  for (auto& item : items()) {
    const fs::path target = item.record.targetPath;
    if (folders.insert(target.parent_path().string()).second) clearUp(target.parent_path());
    try {
      if (!leadsToOldPlace(item)) continue;
      SyncEngine::ensureDstNotInsideSrc(item.newPlace, target, resolver);
      relink(target, item.newPlace, report);
    } catch (const SkillsError& error) {
      report.errors.push_back(item.skillName + " → " + item.record.tool + ": " + error.message());
      report.isUnfinished = report.isUnfinished || error.kind() == SkillsError::Kind::io;
      if (error.kind() == SkillsError::Kind::io) continue;
      item.record.status = kTargetError;
      item.record.lastError = error.message();
      broken.push_back(std::move(item.record));
    }
  }
  if (broken.empty()) return;
  store_.connection().transaction([&] {
    for (const auto& record : broken) store_.upsertTarget(record);
  });
}

void Relinking::relinkProjects(Report& report) {
  std::set<fs::path> stages;
  const auto links = projectLinks(stages);
  for (const auto& folder : stages) clearUp(folder);
  for (const auto& link : links) {
    try {
      relink(link, to_.skills() / FS::linkDestination(link)->filename(), report);
    } catch (const SkillsError& error) {
      report.isUnfinished = report.isUnfinished || error.kind() == SkillsError::Kind::io;
      report.errors.push_back(link.string() + ": " + error.message());
    }
  }
}

// Those that lead to a skill at the old place, as they spell it.
std::vector<fs::path> Relinking::projectLinks(std::set<fs::path>& stages) {
  std::vector<fs::path> links;
  const auto adapters = adaptersByPrecedence(store_.toolOverrides(), user_);
  for (const auto& record : store_.projects()) {
    if (record.workspaceType != WorkspaceType::project) continue;  // what lies in agents' folders is recorded
    const Workspace workspace(currentRecord(record, adapters, user_), adapters, user_, to_.base());
    for (const auto& folder : workspace.folders()) {
      if (!folder.obstacle.empty() || folder.isRepeated) continue;
      for (const auto& link : FS::children(folder.path)) {
        if (isStageName(link.filename().string())) {
          stages.insert(folder.path);
          continue;
        }
        const auto destination = FS::linkDestination(link);
        if (destination && destination->parent_path() == from_.skills()) links.push_back(link);
      }
    }
  }
  return links;
}

Plan Relinking::plan() {
  Plan plan;
  for (const auto& item : items()) {
    PlannedStep step{.action = PlannedStep::Action::replace,
                     .skillName = item.skillName,
                     .skillId = item.record.skillId,
                     .tool = item.record.tool,
                     .path = item.record.targetPath,
                     .reason = {}};
    try {
      if (!leadsToOldPlace(item)) continue;
    } catch (const SkillsError& error) {
      step.action = PlannedStep::Action::refused;
      step.reason = error.message();
    }
    plan.push_back(std::move(step));
  }
  std::set<fs::path> stages;
  for (const auto& link : projectLinks(stages)) {
    plan.push_back({.action = PlannedStep::Action::replace,
                    .skillName = link.filename().string(),
                    .skillId = {},
                    .tool = {},
                    .path = link.string(),
                    .reason = {}});
  }
  return plan;
}

}  // namespace orvanta
