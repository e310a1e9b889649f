// Projects, as the engine offers them. Reading the skills of workspaces, and looking for more of them, needs no turn:
// only the records are read in one.

#include "engine/ProjectComparison.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

namespace fs = std::filesystem;

std::vector<ProjectRecord> SkillsEngine::projectRecords() {
  const Turn turn(state_->mutex);
  return state_->components.projects.records();
}

std::vector<ProjectInfo> SkillsEngine::projects(const OperationContext& context) {
  const auto [workspaces, comparison] = [this] {
    const Turn turn(state_->mutex);
    return std::pair(state_->components.projects.all(), ProjectComparison(state_->library.store.allSkills()));
  }();
  const auto skills = comparison.compare(workspaces, context);
  std::vector<ProjectInfo> infos;
  for (std::size_t i = 0; i < workspaces.size(); ++i) {
    ProjectInfo& info = infos.emplace_back();
    info.record = workspaces[i].record();
    info.exists = workspaces[i].exists();
    info.skillCount = static_cast<std::int64_t>(skills[i].size());
    for (const auto& skill : skills[i]) info.health.count(skill.syncStatus);
  }
  return infos;
}

std::vector<ProjectSkill> SkillsEngine::projectSkills(const std::string& id, const OperationContext& context) {
  const auto [workspace, comparison] = [&] {
    const Turn turn(state_->mutex);
    return std::pair(state_->components.projects.require(id), ProjectComparison(state_->library.store.allSkills()));
  }();
  return comparison.compare({workspace}, context).front();
}

ProjectRecord SkillsEngine::addProject(const fs::path& path, const std::optional<std::string>& name) {
  const State::ChangeTurn turn(*state_);
  return state_->components.projects.add(path, name);
}

ProjectRecord SkillsEngine::addLinkedWorkspace(const std::string& agentKey) {
  const State::ChangeTurn turn(*state_);
  return state_->components.projects.addLinked(agentKey);
}

void SkillsEngine::removeProject(const std::string& id) {
  const State::ChangeTurn turn(*state_);
  state_->components.projects.remove(id);
}

void SkillsEngine::reorderProjects(const std::vector<std::string>& ids) {
  const State::ChangeTurn turn(*state_);
  state_->components.projects.reorder(ids);
}

std::vector<ScannedProject> SkillsEngine::scanForProjects(const fs::path& root, int maxDepth,
                                                          const OperationContext& context) {
  const auto search = [this] {
    const Turn turn(state_->mutex);
    return state_->components.projects.search();
  }();
  return ProjectScanner::scanProjects(root, maxDepth, search.adapters, search.scope, context);
}

// The copy is made ready before the turn, as for every installation.
SkillSummary SkillsEngine::importProjectSkill(const std::string& projectId, const fs::path& path,
                                              const OperationContext& context) {
  const auto request = [&] {
    const Turn turn(state_->mutex);
    auto& components = state_->components;
    return components.projectExchange.importRequest(components.projects.require(projectId), path);
  }();
  const auto prepared = Installation::prepare(state_->paths(), {request}, context);
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settleOne(prepared);
}

Plan SkillsEngine::planImportProjectSkill(const std::string& projectId, const fs::path& path) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.installation.plan(
      {components.projectExchange.importRequest(components.projects.require(projectId), path)});
}

ApplyReport SkillsEngine::exportToProject(const std::string& projectId, const ProjectExport& request,
                                          const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  auto& components = state_->components;
  return components.projectExchange.exportSkills(components.projects.require(projectId), request, context);
}

Plan SkillsEngine::planExportToProject(const std::string& projectId, const ProjectExport& request) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.projectExchange.planExport(components.projects.require(projectId), request);
}

void SkillsEngine::updateProjectSkillFromCenter(const std::string& projectId, const fs::path& path) {
  const State::ChangeTurn turn(*state_);
  auto& components = state_->components;
  components.projectExchange.pull(components.projects.require(projectId), path);
}

Plan SkillsEngine::planUpdateProjectSkillFromCenter(const std::string& projectId, const fs::path& path) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.projectExchange.planPull(components.projects.require(projectId), path);
}

SkillSummary SkillsEngine::updateCenterFromProject(const std::string& projectId, const fs::path& path) {
  const State::ChangeTurn turn(*state_);
  auto& components = state_->components;
  return components.projectExchange.push(components.projects.require(projectId), path);
}

Plan SkillsEngine::planUpdateCenterFromProject(const std::string& projectId, const fs::path& path) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.projectExchange.planPush(components.projects.require(projectId), path);
}

void SkillsEngine::setProjectSkillEnabled(const std::string& projectId, const fs::path& path, bool enabled) {
  const State::ChangeTurn turn(*state_);
  auto& components = state_->components;
  components.projectMoves.setEnabled(components.projects.require(projectId), path, enabled);
}

Plan SkillsEngine::planSetProjectSkillEnabled(const std::string& projectId, const fs::path& path, bool enabled) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.projectMoves.planSetEnabled(components.projects.require(projectId), path, enabled);
}

void SkillsEngine::deleteProjectSkill(const std::string& projectId, const fs::path& path) {
  const State::ChangeTurn turn(*state_);
  auto& components = state_->components;
  components.projectMoves.erase(components.projects.require(projectId), path);
}

Plan SkillsEngine::planDeleteProjectSkill(const std::string& projectId, const fs::path& path) {
  const Turn turn(state_->mutex);
  auto& components = state_->components;
  return components.projectMoves.planErase(components.projects.require(projectId), path);
}

std::vector<fs::path> SkillsEngine::workspaceRoots(const ProjectRecord& record) {
  const Turn turn(state_->mutex);
  return state_->components.projects.workspace(record).roots();
}

void SkillsEngine::assertInsideWorkspace(const fs::path& location, const ProjectRecord& record) {
  const Turn turn(state_->mutex);
  state_->components.projects.workspace(record).assertInside(location);
}

}  // namespace orvanta
