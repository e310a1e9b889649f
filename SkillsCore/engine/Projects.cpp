#include "engine/Projects.h"

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// The given name, or that of the folder.
std::string nameFor(const fs::path& folder, const std::optional<std::string>& given) {
  std::string name(Text::trim(given.value_or("")));
  if (!Text::isValidUTF8(name)) throw SkillsError::invalidInput("The workspace's name must be valid UTF-8");
  if (!name.empty()) return name;
  std::string own = Text::repairUTF8(folder.filename().string());
  return own.empty() ? folder.string() : own;
}

}  // namespace

Workspace Projects::require(const std::string& id) {
  const auto record = library_.store.project(id);
  if (!record) throw SkillsError::notFound("Workspace not found: " + id);
  return workspace(*record);
}

std::vector<Workspace> Projects::all() {
  const auto adapters = adaptersByPrecedence(library_.store.toolOverrides(), library_.user);
  std::vector<Workspace> workspaces;
  for (const auto& record : library_.store.projects()) {
    workspaces.emplace_back(record, adapters, library_.user, library_.paths.base());
  }
  return workspaces;
}

Workspace Projects::workspace(const ProjectRecord& record) {
  return {record, adaptersByPrecedence(library_.store.toolOverrides(), library_.user), library_.user,
          library_.paths.base()};
}

std::vector<ProjectRecord> Projects::records() {
  const auto adapters = ToolAdapters::all(library_.store.toolOverrides());
  auto records = library_.store.projects();
  for (auto& record : records) record = currentRecord(std::move(record), adapters, library_.user);
  return records;
}

ProjectRecord Projects::add(const fs::path& path, const std::optional<std::string>& name) {
  if (path.empty()) throw SkillsError::invalidInput("Name the folder of a project");
  const fs::path folder = comparablePath(path);
  if (!FS::resolvesToDirectory(folder)) {
    throw SkillsError::notFound("There is no folder at " + folder.string() + "; name the folder of a project");
  }
  requireNew(folder);
  ProjectRecord record;
  record.name = nameFor(folder, name);
  record.path = folder.string();
  return insert(std::move(record), "add_project");
}

ProjectRecord Projects::addLinked(const std::string& agentKey) {
  const auto adapter = ToolAdapters::find(agentKey, library_.store.toolOverrides());
  if (!adapter) throw SkillsError::notFound("Agent not found: " + agentKey);
  for (const auto& known : library_.store.projects()) {
    if (known.linkedAgentKey == agentKey) throw SkillsError::conflict(adapter->displayName + " is already linked");
  }
  if (!adapter->isInstalled(library_.user)) throw SkillsError::refused(adapter->displayName + " is not installed");
  const fs::path folder = comparablePath(adapter->skillsDir(library_.user));
  requireNew(folder);
  ProjectRecord record;
  record.name = adapter->displayName;
  record.path = folder.string();
  record.workspaceType = WorkspaceType::linked;
  record.linkedAgentKey = agentKey;
  record.linkedAgentName = adapter->displayName;
  record.disabledPath = disabledSibling(folder).string();
  return insert(std::move(record), "add_linked_workspace");
}

void Projects::remove(const std::string& id) {
  const Workspace workspace = require(id);
  library_.store.deleteProject(id);
  library_.store.logAudit({.action = "remove_project", .detail = workspace.record().path});
}

void Projects::reorder(const std::vector<std::string>& ids) {
  library_.store.reorderProjects(ids);
  library_.store.logAudit({.action = "reorder_projects"});
}

Projects::Search Projects::search() {
  Search search{.adapters = adaptersByPrecedence(library_.store.toolOverrides(), library_.user), .scope = {}};
  for (const auto& record : records()) search.scope.known.insert(FS::resolved(record.path));
  search.scope.excluded.insert(FS::resolved(library_.paths.base()));
  for (const auto& adapter : search.adapters) {
    search.scope.excluded.insert(FS::resolved(adapter.skillsDir(library_.user)));
  }
  return search;
}

// One folder can be spelled in several ways.
void Projects::requireNew(const fs::path& path) {
  const fs::path real = FS::resolved(path);
  if (isInside(real, FS::resolved(library_.paths.base()))) {
    throw SkillsError::invalidInput(path.string() + " lies inside the library; name a folder outside of it");
  }
  for (const auto& known : records()) {
    if (FS::resolved(known.path) == real) throw SkillsError::conflict("Workspace already added");
  }
}

ProjectRecord Projects::insert(ProjectRecord record, const std::string& action) {
  record.id = newUuid();
  record.sortOrder = library_.store.nextProjectSortOrder();
  record.createdAt = record.updatedAt = nowMillis();
  library_.store.insertProject(record);
  library_.store.logAudit({.action = action, .tool = record.linkedAgentKey, .detail = record.path});
  return record;
}

}  // namespace orvanta
