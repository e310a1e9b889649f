#include "engine/ProjectComparison.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>

#include "agents/SyncEngine.h"
#include "content/ContentHash.h"
#include "content/Scanner.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "sources/ProjectScanner.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

std::string nameAt(const fs::path& folder) {
  return SkillMetadata::shownName(SkillMetadata::parseSkillMd(folder), folder);
}

using States = std::map<fs::path, SkillState>;

// What cannot be read has no state.
void readStates(States& states, const OperationContext& context) {
  std::vector<States::value_type*> entries;
  for (auto& entry : states) entries.push_back(&entry);
  std::mutex progress;
  std::size_t finished = 0;
  parallelFor(entries.size(), [&](std::size_t i) {
    if (context.stop.stop_requested()) return;
    try {
      auto content = ContentHash::readDirectory(entries[i]->first);
      entries[i]->second = {.contentHash = std::move(content.hash), .modifiedMs = content.latestModifiedMs};
    } catch (const SkillsError&) {
      entries[i]->second = {};
    }
    const std::lock_guard lock(progress);
    context.report("Comparing", ++finished, entries.size());
  });
}

}  // namespace

// One skill of a workspace on its way through the comparison.
struct ProjectComparison::Found {
  ProjectSkill skill;
  fs::path real;                              // its folder, with links resolved
  std::vector<const SkillRecord*> namesakes;  // of the library, the likelier ones first
};

ProjectComparison::ProjectComparison(std::vector<SkillRecord> skills) : skills_(std::move(skills)) {
  SyncEngine::FolderResolver resolver;  // they share few parents
  for (std::size_t i = 0; i < skills_.size(); ++i) {
    const fs::path folder = fsPath(skills_[i].centralPath);
    positions_.emplace(skills_[i].id, i);
    byName_.emplace(Text::comparisonKey(skills_[i].name), i);
    byFolder_.emplace((resolver.resolve(folder.parent_path()) / folder.filename()).string(), i);
    byFolderName_.emplace(folder.filename().string(), i);
  }
}

std::vector<std::vector<ProjectSkill>> ProjectComparison::compare(const std::vector<Workspace>& workspaces,
                                                                  const OperationContext& context) const {
  std::vector<Found> found;
  std::vector<std::size_t> ends;
  for (const auto& workspace : workspaces) {
    findSkills(workspace, found);
    ends.push_back(found.size());
  }
  classify(found, context);
  std::vector<std::vector<ProjectSkill>> result;
  std::size_t next = 0;
  for (const std::size_t end : ends) {
    auto& skills = result.emplace_back();
    for (; next < end; ++next) skills.push_back(std::move(found[next].skill));
  }
  return result;
}

ProjectSkill ProjectComparison::compareOne(const Workspace& workspace, const fs::path& path) const {
  const fs::path location = standardized(path);
  const Workspace::Folder& folder = workspace.folderOf(location);
  std::vector<Found> found;
  findSkills(workspace, found);
  // A folder that agents share is listed under one of its names, and can be spelled by another.
  const fs::path wanted = folder.real / location.lexically_relative(folder.path);
  std::erase_if(found, [&](const Found& each) {
    const fs::path listed = each.skill.path;
    return FS::resolved(listed.parent_path()) / listed.filename() != wanted;
  });
  if (found.empty()) {
    throw SkillsError::refused(path.string() + " is not a skill inside workspace '" + workspace.record().name + "'");
  }
  classify(found, {});
  return std::move(found.front().skill);
}

bool ProjectComparison::isLinkIntoLibrary(const ProjectSkill& skill) const {
  return skill.isSymlink && linkedSkill(FS::resolved(skill.path)) != nullptr;
}

void ProjectComparison::findSkills(const Workspace& workspace, std::vector<Found>& found) const {
  for (const auto& folder : workspace.folders()) {
    if (!folder.obstacle.empty() || folder.isRepeated || !FS::resolvesToDirectory(folder.path)) continue;
    for (auto& dir : Scanner::listSkillDirs(folder.path, folder.isRecursive)) {
      if (workspace.isLibrarys(dir.url)) continue;
      Found& one = found.emplace_back();
      one.real = FS::resolved(dir.url);
      one.skill.path = dir.url.string();
      one.skill.relativePath = std::move(dir.relativePath);
      one.skill.agent = folder.agent;
      one.skill.agentDisplayName = folder.agentName;
      one.skill.enabled = folder.holdsEnabled;
      one.skill.isSymlink = dir.isSymlink;
    }
  }
}

void ProjectComparison::classify(std::vector<Found>& found, const OperationContext& context) const {
  parallelFor(found.size(), [&](std::size_t i) {
    Found& one = found[i];
    const SkillMeta meta = SkillMetadata::parseSkillMd(one.skill.path);
    one.skill.name = SkillMetadata::shownName(meta, one.skill.path);
    one.skill.description = meta.description;
    one.namesakes = namesakes(one.skill);
    if (!one.skill.isSymlink) return;
    if (const SkillRecord* linked = linkedSkill(one.real)) one.namesakes = {linked};
  });
  States states;
  for (const auto& one : found) {
    states.try_emplace(one.real);
    for (const auto* namesake : one.namesakes) states.try_emplace(fs::path(namesake->centralPath));
  }
  readStates(states, context);
  for (auto& one : found) {
    const SkillState& own = states.at(one.real);
    one.skill.contentHash = own.contentHash;
    one.skill.lastModifiedAt = own.modifiedMs;
    if (one.namesakes.empty()) continue;
    const auto stateOf = [&](const SkillRecord* skill) -> const SkillState& { return states.at(skill->centralPath); };
    const auto same = std::find_if(one.namesakes.begin(), one.namesakes.end(), [&](const SkillRecord* each) {
      return own.contentHash && stateOf(each).contentHash == own.contentHash;
    });
    const SkillRecord* center = same == one.namesakes.end() ? one.namesakes.front() : *same;
    const bool isLink = one.skill.isSymlink && linkedSkill(one.real) == center;
    one.skill.inCenter = true;
    one.skill.centerSkillId = center->id;
    one.skill.syncStatus = isLink
                               ? ProjectSyncStatus::inSync
                               : ProjectScanner::classifySyncStatus(own.contentHash, own.modifiedMs, stateOf(center));
  }
}

// The library's skills of the same name, first the one whose folder is called alike. A skill that was renamed in the
// library is found by its folder, if that still gives itself the name.
std::vector<const SkillRecord*> ProjectComparison::namesakes(const ProjectSkill& skill) const {
  std::vector<std::size_t> found;
  const auto [begin, end] = byName_.equal_range(Text::comparisonKey(skill.name));
  for (auto entry = begin; entry != end; ++entry) found.push_back(entry->second);
  std::sort(found.begin(), found.end());
  std::vector<const SkillRecord*> records;
  for (const std::size_t i : found) records.push_back(&skills_[i]);
  const SkillRecord* alike = skillInFolder(fs::path(skill.path).filename().string());
  if (alike == nullptr) return records;
  const auto place = std::find(records.begin(), records.end(), alike);
  if (place != records.end()) {
    std::rotate(records.begin(), place, place + 1);
  } else if (records.empty() && nameAt(alike->centralPath) == skill.name) {
    records.push_back(alike);
  }
  return records;
}

const SkillRecord* ProjectComparison::skillInFolder(const std::string& folderName) const {
  const auto found = byFolderName_.find(folderName);
  return found == byFolderName_.end() ? nullptr : &skills_[found->second];
}

const SkillRecord* ProjectComparison::linkedSkill(const fs::path& real) const {
  const auto found = byFolder_.find(real.string());
  return found == byFolder_.end() ? nullptr : &skills_[found->second];
}

}  // namespace orvanta
