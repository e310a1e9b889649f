#include "engine/Workspace.h"

#include <algorithm>
#include <set>

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "sources/ProjectScanner.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The agent of a linked workspace; one that is known no more as the workspace remembers it.
ToolAdapter linkedAdapter(const ProjectRecord& record, const std::vector<ToolAdapter>& adapters) {
  const auto known = std::find_if(adapters.begin(), adapters.end(),
                                  [&](const ToolAdapter& adapter) { return adapter.key == record.linkedAgentKey; });
  if (known != adapters.end()) return *known;
  ToolAdapter adapter;
  adapter.key = record.linkedAgentKey.value_or("");
  adapter.displayName = record.linkedAgentName.value_or(adapter.key);
  adapter.overrideSkillsDir = record.path;
  return adapter;
}

// The location with the links of the folder that holds it resolved.
fs::path placeOf(const fs::path& location) { return FS::resolved(location.parent_path()) / location.filename(); }

}  // namespace

Workspace::Workspace(const ProjectRecord& record, const std::vector<ToolAdapter>& adapters, const UserFolders& user,
                     const fs::path& library)
    : record_(currentRecord(record, adapters, user)), library_(FS::resolved(library)) {
  if (record_.workspaceType == WorkspaceType::linked) {
    addFolders(linkedAdapter(record_, adapters), record_.path, record_.disabledPath.value_or(""));
  } else {
    const fs::path project = record_.path;
    for (const auto& adapter : adapters) {
      const fs::path folder = standardized(project / adapter.projectRelativeSkillsDir());
      const bool isBelow = folder != project && isInside(folder, project);
      if (isBelow) addFolders(adapter, folder, disabledSibling(folder));
    }
  }
  std::set<fs::path> listed;
  for (auto& folder : folders_) folder.isRepeated = !listed.insert(folder.real).second;
}

void Workspace::addFolders(const ToolAdapter& adapter, const fs::path& enabled, const fs::path& disabled) {
  const auto add = [&](const fs::path& path, const fs::path& sibling, bool holdsEnabled) {
    const fs::path real = FS::resolved(path);
    folders_.push_back({.path = path,
                        .real = real,
                        .sibling = sibling,
                        .agent = adapter.key,
                        .agentName = adapter.displayName,
                        .isRecursive = adapter.recursiveScan,
                        .holdsEnabled = holdsEnabled,
                        .obstacle = obstacleAt(path, real)});
  };
  add(enabled, disabled, true);
  if (!disabled.empty()) add(disabled, enabled, false);
}

// An agent's global folder may be a link, and then is where it leads. All else stays where it belongs: what belongs to
// a project below that, and a linked agent's disabled skills beside its others.
std::string Workspace::obstacleAt(const fs::path& path, const fs::path& real) const {
  if (isInside(real, library_)) return "lies inside the library";
  const bool isLinked = record_.workspaceType == WorkspaceType::linked;
  if (isLinked && (path == fs::path(record_.path) || real == placeOf(path))) return "";
  if (!isLinked && isInside(real, FS::resolved(record_.path))) return "";
  return "leads out of the workspace by a link, to " + real.string();
}

bool Workspace::exists() const { return FS::resolvesToDirectory(record_.path); }

std::vector<fs::path> Workspace::roots() const {
  std::vector<fs::path> roots;
  for (const auto& folder : folders_) {
    if (std::find(roots.begin(), roots.end(), folder.path) == roots.end()) roots.push_back(folder.path);
  }
  return roots;
}

bool Workspace::isLibrarys(const fs::path& location) const { return isInside(placeOf(location), library_); }

const Workspace::Folder& Workspace::folderOf(const fs::path& location) const {
  const fs::path path = standardized(location);
  const fs::path place = placeOf(path);
  if (isLibrarys(path)) {
    throw SkillsError::refused(location.string() + " belongs to the library itself; use 'remove' for its skills");
  }
  const bool isRoot = std::any_of(folders_.begin(), folders_.end(),
                                  [&](const Folder& folder) { return path == folder.path || place == folder.real; });
  if (isRoot) throw SkillsError::refused("Cannot determine the agent folder for " + path.string());
  const auto found = std::find_if(folders_.begin(), folders_.end(), [&](const Folder& folder) {
    return folder.obstacle.empty() && isInside(path, folder.path) && isInside(place, folder.real);
  });
  if (found != folders_.end()) return *found;
  throw SkillsError::refused(location.string() + " is not a skill inside workspace '" + record_.name + "'");
}

void Workspace::requireExists() const {
  if (exists()) return;
  throw SkillsError::notFound("The folder of workspace '" + record_.name + "' is missing: " + record_.path +
                              "; put it back, or remove the workspace");
}

ProjectRecord currentRecord(ProjectRecord record, const std::vector<ToolAdapter>& adapters, const UserFolders& user) {
  if (record.workspaceType != WorkspaceType::linked) return record;
  const fs::path folder = linkedAdapter(record, adapters).skillsDir(user);
  if (folder == fs::path(record.path)) return record;
  record.path = folder.string();
  if (record.disabledPath) record.disabledPath = disabledSibling(folder).string();
  return record;
}

std::vector<ToolAdapter> adaptersByPrecedence(const ToolOverrides& overrides, const UserFolders& user) {
  auto adapters = ToolAdapters::all(overrides);
  std::stable_partition(adapters.begin(), adapters.end(), [&](const ToolAdapter& adapter) {
    return !overrides.disabled.contains(adapter.key) && adapter.isInstalled(user);
  });
  return adapters;
}

fs::path disabledSibling(const fs::path& skillsFolder) {
  return skillsFolder.string() + std::string(ProjectScanner::disabledSuffix);
}

}  // namespace orvanta
