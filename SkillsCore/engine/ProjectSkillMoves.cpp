#include "engine/ProjectSkillMoves.h"

#include <system_error>

#include "agents/SyncEngine.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "engine/PlanOrRefusal.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

PlannedStep stepFor(const ProjectSkill& skill, Action action, const fs::path& path) {
  return {.action = action,
          .skillName = skill.name,
          .skillId = {},
          .tool = skill.agent,
          .path = path.string(),
          .reason = {}};
}

// Empty folders of disabled skills would be a puzzle in the project. One that holds anything stays, and so does a link
// to one. `outermost` is the last that may go.
void removeEmptied(fs::path folder, const fs::path& outermost) {
  std::error_code error;
  for (; isInside(folder, outermost) && FS::isDirectory(folder) && !error; folder = folder.parent_path()) {
    fs::remove(folder, error);
  }
}

}  // namespace

void ProjectSkillMoves::setEnabled(const Workspace& workspace, const fs::path& path, bool enabled) {
  const Move move = checkMove(workspace, path, enabled);
  if (move.isDone) return;
  FS::createDirectories(move.destination.parent_path());
  try {
    FS::renameExclusive(move.skill.path, move.destination);
  } catch (const SkillsError&) {
    if (!enabled) removeEmptied(move.destination.parent_path(), move.sibling);
    throw;
  }
  try {
    FS::flushFolder(move.destination.parent_path());
  } catch (const SkillsError&) {
    FS::renameExclusive(move.destination, move.skill.path);
    throw;
  }
  if (enabled) removeEmptied(fs::path(move.skill.path).parent_path(), move.folder);
  library_.store.logAudit({.action = enabled ? "project_enable_skill" : "project_disable_skill",
                           .skillName = move.skill.name,
                           .tool = move.skill.agent,
                           .detail = move.destination.string()});
}

Plan ProjectSkillMoves::planSetEnabled(const Workspace& workspace, const fs::path& path, bool enabled) {
  return planOrRefusal(path, [&]() -> Plan {
    const Move move = checkMove(workspace, path, enabled);
    if (move.isDone) return {stepFor(move.skill, Action::keep, move.skill.path)};
    return {stepFor(move.skill, Action::remove, move.skill.path), stepFor(move.skill, Action::place, move.destination)};
  });
}

ProjectSkillMoves::Move ProjectSkillMoves::checkMove(const Workspace& workspace, const fs::path& path, bool enabled) {
  workspace.requireExists();
  Move move{.skill = ProjectComparison({}).compareOne(workspace, path), .folder = {}, .sibling = {}, .destination = {}};
  move.isDone = move.skill.enabled == enabled;
  if (move.isDone) return move;
  const Workspace::Folder& folder = workspace.folderOf(move.skill.path);
  if (folder.sibling.empty()) throw SkillsError::refused("This workspace has no disabled folder");
  if (FS::exists(folder.sibling) && !FS::resolvesToDirectory(folder.sibling)) {
    throw SkillsError::refused(folder.sibling.string() + " is not a folder; move it aside, and try again");
  }
  move.folder = folder.path;
  move.sibling = folder.sibling;
  move.destination = folder.sibling / fs::path(move.skill.path).lexically_relative(folder.path);
  workspace.assertInside(move.destination);  // its folder may be a link
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex deployments(library_.store.allTargets(), resolver);
  const std::string place = deployments.place(move.skill.path);
  if (!deployments.recordsAt(place).empty() || deployments.below(place) != nullptr) {
    throw SkillsError::refused(move.skill.path +
                               " is managed by Orvanta; undeploy it instead, or disable the skill itself");
  }
  if (FS::exists(move.destination)) {
    throw SkillsError::conflict("Cannot move " + move.skill.path + " to " + move.destination.string() +
                                ": something stands there already. Move one of them aside, and try again");
  }
  return move;
}

void ProjectSkillMoves::erase(const Workspace& workspace, const fs::path& path) {
  const Removal removal = checkRemoval(workspace, path);
  const fs::path target = removal.skill.path;
  if (!removal.deployments.empty()) undeploy(removal);
  FolderChanges changes(library_);
  TargetChange change;
  if (FS::exists(target)) change = TargetChange::removal(target, FS::kind(target));
  changes.make(change);
  library_.transaction([&] {
    changes.recorded();
    library_.store.logAudit({.action = "project_delete_skill",
                             .skillName = removal.skill.name,
                             .tool = removal.skill.agent,
                             .detail = removal.skill.path});
  });
  change.finish();
}

Plan ProjectSkillMoves::planErase(const Workspace& workspace, const fs::path& path) {
  return planOrRefusal(path, [&]() -> Plan {
    const Removal removal = checkRemoval(workspace, path);
    return {stepFor(removal.skill, Action::remove, removal.skill.path)};
  });
}

ProjectSkillMoves::Removal ProjectSkillMoves::checkRemoval(const Workspace& workspace, const fs::path& path) {
  workspace.requireExists();
  Removal removal{.skill = ProjectComparison({}).compareOne(workspace, path), .deployments = {}};
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex deployments(library_.store.allTargets(), resolver);
  const std::string place = deployments.place(removal.skill.path);
  if (const SkillTarget* inner = deployments.below(place)) {
    throw SkillsError::refused(removal.skill.path + " holds the deployment " + inner->targetPath +
                               "; undeploy that first");
  }
  for (const auto* record : deployments.recordsAt(place)) {
    if (!SyncEngine::matchesRecordedDeployment(removal.skill.path, record->mode)) {
      throw SkillsError::refused(removal.skill.path +
                                 " is not what was deployed there; undeploy it, which leaves what stands there alone");
    }
    removal.deployments.push_back({record->skillId, record->tool});
  }
  return removal;
}

// The last of the agents that share the place takes the files with it.
void ProjectSkillMoves::undeploy(const Removal& removal) {
  const PlacementReport report = deployment_.undeploy(removal.deployments, Asker::hand, {});
  const Placement& last = report.done.back();
  if (last.note) {
    throw SkillsError::refused(removal.skill.path + " is no longer deployed, but it was left in place: " + *last.note);
  }
}

}  // namespace orvanta
