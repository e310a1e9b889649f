#include "engine/AgentFolders.h"

#include <algorithm>
#include <map>
#include <set>

#include "agents/SyncEngine.h"
#include "content/ContentHash.h"
#include "content/Scanner.h"
#include "content/SkillMetadata.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// One skill folder found in some agent's folder.
struct Found {
  std::string tool;
  LocalSkillDir dir;
};

std::map<std::string, std::string> textMap(SkillStore& store, const std::string& sql) {
  std::map<std::string, std::string> map;
  store.connection().forEach(sql, {}, [&](const SQLRow& row) { map.emplace(row.text(0), row.text(1)); });
  return map;
}

std::map<std::string, std::string> skillIdsByHash(SkillStore& store) {
  return textMap(store, "SELECT content_hash, id FROM skills WHERE content_hash IS NOT NULL");
}

std::map<std::string, std::string> skillNamesById(SkillStore& store) {
  return textMap(store, "SELECT id, name FROM skills");
}

// The recorded deployments by the place where their files stand.
std::map<std::string, SkillTarget> targetsByPlace(SkillStore& store, const DeploymentIndex& places) {
  std::map<std::string, SkillTarget> targets;
  for (auto& target : store.allTargets()) {
    if (target.status == kTargetDisabled) continue;
    std::string place = places.place(target.targetPath);
    targets.emplace(std::move(place), std::move(target));
  }
  return targets;
}

AgentSkillEntry entryFor(const LocalSkillDir& dir, const std::string& tool) {
  const SkillMeta meta = SkillMetadata::parseSkillMd(dir.url);
  AgentSkillEntry entry;
  entry.id = tool + "|" + dir.url.string();
  entry.name = SkillMetadata::shownName(meta, dir.url);
  entry.description = meta.description;
  entry.path = dir.url.string();
  entry.relativePath = dir.relativePath;
  entry.isSymlink = dir.isSymlink;
  return entry;
}

AgentSkillEntry missingEntry(const SkillTarget& target, const std::string& skillName, const fs::path& root) {
  AgentSkillEntry entry;
  entry.id = target.tool + "|" + target.targetPath;
  entry.name = skillName;
  entry.path = target.targetPath;
  entry.relativePath = fs::path(target.targetPath).lexically_relative(root).string();
  entry.kind = AgentSkillEntry::Kind::missing;
  entry.isSymlink = FS::kind(target.targetPath) == FS::Kind::symlink;
  entry.skillId = target.skillId;
  entry.mode = target.mode;
  return entry;
}

}  // namespace

std::vector<AgentSkillEntry> AgentFolders::entries(const std::string& tool) {
  const ToolAdapter adapter = agents_.adapter(tool);
  const fs::path root = adapter.skillsDir(library_.user);
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex places({}, resolver);
  const auto targets = targetsByPlace(library_.store, places);
  const auto idsByHash = skillIdsByHash(library_.store);

  std::vector<AgentSkillEntry> entries;
  std::vector<std::size_t> unmanaged;
  std::vector<fs::path> toHash;
  for (const auto& dir : Scanner::listSkillDirs(root, adapter.recursiveScan)) {
    AgentSkillEntry entry = entryFor(dir, tool);
    const auto target = targets.find(places.place(entry.path));
    if (target != targets.end()) {
      entry.kind = AgentSkillEntry::Kind::managed;
      entry.skillId = target->second.skillId;
      entry.mode = target->second.mode;
    } else {
      unmanaged.push_back(entries.size());
      toHash.push_back(dir.url);
    }
    entries.push_back(std::move(entry));
  }
  auto hashes = ContentHash::hashDirectories(toHash);
  for (std::size_t i = 0; i < unmanaged.size(); ++i) {
    AgentSkillEntry& entry = entries[unmanaged[i]];
    entry.contentHash = std::move(hashes[i]);
    const auto skill = idsByHash.find(entry.contentHash.value_or(""));
    if (skill == idsByHash.end()) continue;
    entry.kind = AgentSkillEntry::Kind::unmanagedInLibrary;
    entry.skillId = skill->second;
  }
  std::set<std::string> listed;
  for (const auto& entry : entries) listed.insert(places.place(entry.path));
  const auto names = skillNamesById(library_.store);
  for (const auto& target : library_.store.targetsOfTool(tool)) {
    if (target.status == kTargetDisabled || listed.contains(places.place(target.targetPath))) continue;
    const auto name = names.find(target.skillId);
    entries.push_back(missingEntry(target, name == names.end() ? target.skillId : name->second, root));
  }
  return entries;
}

std::vector<DiscoveredGroup> AgentFolders::discover(const OperationContext& context) {
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex places({}, resolver);
  const auto managed = targetsByPlace(library_.store, places);
  const fs::path library = FS::resolved(library_.paths.base());
  std::vector<Found> found;
  std::set<std::string> seen;  // agents can share a folder; what lies there is listed once
  for (const auto& adapter : ToolAdapters::active(library_.store.toolOverrides(), library_.user)) {
    for (const auto& folder : adapter.allScanDirs(library_.user)) {
      for (auto& dir : Scanner::listSkillDirs(folder, adapter.recursiveScan)) {
        const std::string place = places.place(dir.url.string());
        if (managed.contains(place) || !seen.insert(place).second) continue;
        if (isInside(FS::resolved(dir.url), library)) continue;
        found.push_back({adapter.key, std::move(dir)});
      }
    }
  }
  std::vector<fs::path> folders;
  for (const auto& item : found) folders.push_back(item.dir.url);
  const auto hashes = ContentHash::hashDirectories(folders, context);
  const auto known = skillIdsByHash(library_.store);
  const std::int64_t now = nowMillis();
  std::map<std::pair<std::string, std::string>, DiscoveredGroup> groups;  // by name and fingerprint
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (!hashes[i] || known.contains(*hashes[i])) continue;
    const Found& item = found[i];
    const SkillMeta meta = SkillMetadata::parseSkillMd(item.dir.url);
    const std::string name = SkillMetadata::shownName(meta, item.dir.url);
    DiscoveredGroup& group = groups[{name, *hashes[i]}];
    group.name = name;
    group.description = meta.description;
    group.fingerprint = *hashes[i];
    group.foundAt = now;
    group.locations.push_back(
        {.id = item.tool + "|" + item.dir.url.string(), .tool = item.tool, .foundPath = item.dir.url.string()});
  }
  std::vector<DiscoveredGroup> result;
  for (auto& [key, group] : groups) result.push_back(std::move(group));
  return result;
}

void AgentFolders::deleteUnmanaged(const fs::path& path, const std::string& tool) {
  const fs::path target = requireDeletable(path, agents_.adapter(tool));
  FolderChanges changes(library_);
  TargetChange change = TargetChange::removal(target, FS::kind(target));
  changes.make(change);
  library_.transaction([&] {
    changes.recorded();
    library_.store.logAudit({.action = "delete_unmanaged", .tool = tool, .detail = target.string()});
  });
  change.finish();
}

Plan AgentFolders::planDelete(const fs::path& path, const std::string& tool) {
  PlannedStep step{.action = PlannedStep::Action::remove,
                   .skillName = path.filename().string(),
                   .skillId = {},
                   .tool = tool,
                   .path = path.string(),
                   .reason = {}};
  try {
    step.path = requireDeletable(path, agents_.adapter(tool)).string();
  } catch (const SkillsError& error) {
    step.action = PlannedStep::Action::refused;
    step.reason = error.message();
  }
  return {step};
}

fs::path AgentFolders::requireDeletable(const fs::path& path, const ToolAdapter& adapter) {
  fs::path target = requireInside(path, {adapter.skillsDir(library_.user)}, adapter, library_.paths);
  requireUnmanaged(target);
  if (!FS::exists(target)) throw SkillsError::notFound("There is nothing at " + target.string());
  return target;
}

void AgentFolders::requireUnmanaged(const fs::path& path) {
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex places({}, resolver);
  const fs::path place = places.place(path.string());
  for (const auto& target : library_.store.allTargets()) {
    if (target.status == kTargetDisabled) continue;
    const fs::path managed = places.place(target.targetPath);
    if (isInside(place, managed) || isInside(managed, place)) {
      throw SkillsError::refused(path.string() + " is managed by Orvanta; undeploy it instead");
    }
  }
}

fs::path requireInside(const fs::path& path, const std::vector<fs::path>& folders, const ToolAdapter& adapter,
                       const Paths& library) {
  fs::path location = standardized(path);
  const fs::path real = FS::resolved(location.parent_path()) / location.filename();
  const bool lies = std::any_of(folders.begin(), folders.end(), [&](const fs::path& folder) {
    return location != standardized(folder) && isInside(location, folder) && isInside(real, FS::resolved(folder));
  });
  const fs::path base = FS::resolved(library.base());
  if (lies && (isInside(real, base) || isInside(base, real))) {
    throw SkillsError::refused(path.string() + " belongs to the library itself; use 'remove' for its skills");
  }
  if (lies) return location;
  throw SkillsError::refused(path.string() + " is not inside " + adapter.displayName + "'s skills directory");
}

}  // namespace orvanta
