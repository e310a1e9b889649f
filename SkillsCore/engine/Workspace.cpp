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

// An agent that is known no more, as the workspace remembers it.
ToolAdapter rememberedAdapter(const ProjectRecord& record) {
  ToolAdapter adapter;
  adapter.key = record.linkedAgentKey.value_or("");
  adapter.displayName = record.linkedAgentName.value_or(adapter.key);
  adapter.overrideSkillsDir = record.path;
  return adapter;
}

}  // namespace

Workspace::Workspace(ProjectRecord record, const std::vector<ToolAdapter>& adapters, const UserFolders& user)
    : record_(std::move(record)) {
  if (record_.workspaceType == WorkspaceType::linked) {
    const auto known = std::find_if(adapters.begin(), adapters.end(),
                                    [&](const ToolAdapter& adapter) { return adapter.key == record_.linkedAgentKey; });
    const ToolAdapter adapter = known == adapters.end() ? rememberedAdapter(record_) : *known;
    addFolders(adapter, adapter.skillsDir(user), record_.disabledPath.value_or(""));
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
  const fs::path project = FS::resolved(record_.path);
  const auto add = [&](const fs::path& path, const fs::path& sibling, bool holdsEnabled) {
    const fs::path real = FS::resolved(path);
    folders_.push_back({.path = path,
                        .real = real,
                        .sibling = sibling,
                        .agent = adapter.key,
                        .agentName = adapter.displayName,
                        .isRecursive = adapter.recursiveScan,
                        .holdsEnabled = holdsEnabled,
                        .leadsOutside = record_.workspaceType == WorkspaceType::project && !isInside(real, project)});
  };
  add(enabled, disabled, true);
  if (!disabled.empty()) add(disabled, enabled, false);
}

bool Workspace::exists() const { return FS::resolvesToDirectory(record_.path); }

std::vector<fs::path> Workspace::roots() const {
  std::vector<fs::path> roots;
  for (const auto& folder : folders_) {
    if (std::find(roots.begin(), roots.end(), folder.path) == roots.end()) roots.push_back(folder.path);
  }
  return roots;
}

void Workspace::requireExists() const {
  if (exists()) return;
  throw SkillsError::notFound("The folder of workspace '" + record_.name + "' is missing: " + record_.path +
                              "; put it back, or remove the workspace");
}

const Workspace::Folder& Workspace::folderOf(const fs::path& location) const {
  const fs::path path = standardized(location);
  const fs::path real = FS::resolved(path.parent_path()) / path.filename();
  const bool isRoot = std::any_of(folders_.begin(), folders_.end(),
                                  [&](const Folder& folder) { return path == folder.path || real == folder.real; });
  if (isRoot) throw SkillsError::refused("Cannot determine the agent folder for " + path.string());
  const auto found = std::find_if(folders_.begin(), folders_.end(), [&](const Folder& folder) {
    return !folder.leadsOutside && isInside(path, folder.path) && isInside(real, folder.real);
  });
  if (found != folders_.end()) return *found;
  throw SkillsError::refused(location.string() + " is not a skill inside workspace '" + record_.name + "'");
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
