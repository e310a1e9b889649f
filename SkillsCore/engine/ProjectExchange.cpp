#include "engine/ProjectExchange.h"

#include "agents/TargetChange.h"
#include "content/ContentHash.h"
#include "engine/CentralSwap.h"
#include "engine/DeploymentIndex.h"
#include "engine/FolderChanges.h"
#include "engine/Pairs.h"
#include "engine/PlanOrRefusal.h"
#include "engine/ProjectExportBatch.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "files/TemporaryFolder.h"
#include "files/TreeCopy.h"
#include "foundations/Clock.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

bool isLinked(const Workspace& workspace) { return workspace.record().workspaceType == WorkspaceType::linked; }

// A linked workspace is one agent's folder, where skills are deployed and recorded.
DeployRequest deploymentOf(const Workspace& workspace, const ProjectExport& request) {
  for (const auto& agent : request.agents) {
    if (agent == workspace.record().linkedAgentKey) continue;
    throw SkillsError::invalidInput("Workspace '" + workspace.record().name + "' is the folder of " +
                                    workspace.record().linkedAgentName.value_or("another agent") +
                                    " alone; name that agent");
  }
  return {.pairs = pairsOf(request.skillIds, request.agents), .force = request.force, .mode = request.mode};
}

// A project can come from anybody, and with it a link to whatever of the user's looks like a skill.
void refuseOutside(const Workspace& workspace, const ProjectSkill& skill) {
  const fs::path real = FS::resolved(skill.path);
  if (isLinked(workspace) || isInside(real, FS::resolved(workspace.record().path))) return;
  throw SkillsError::refused(skill.path + " leads out of the workspace by a link, to " + real.string() +
                             "; install the skill from there if you know it");
}

}  // namespace

ApplyReport ProjectExchange::exportSkills(const Workspace& workspace, const ProjectExport& request,
                                          const OperationContext& context) {
  if (isLinked(workspace)) return deployInto(workspace, request, context);
  workspace.requireExists();
  ProjectExportBatch batch(library_, workspace, request);
  batch.place(context);
  ApplyReport report;
  library_.transaction([&] {
    batch.recorded();
    for (const auto& item : batch.items()) {
      if (!item.done && !item.failure) continue;  // it was not reached
      if (item.done && item.action == Action::keep) {
        ++report.skipped;
        continue;
      }
      const std::string where = item.target.string() + " (" + std::string(rawValue(request.mode)) + ")";
      library_.store.logAudit({.action = "export_to_project",
                               .skillId = item.names.skillId,
                               .skillName = item.skillName(),
                               .tool = item.names.tool,
                               .success = item.done,
                               .detail = item.failure ? item.failure->message() : where});
      if (item.failure) {
        report.errors.push_back(item.skillName() + " → " + item.agentName + ": " + item.failure->message());
      } else {
        ++report.deployed;
      }
    }
  });
  batch.keep();
  return report;
}

ApplyReport ProjectExchange::deployInto(const Workspace& workspace, const ProjectExport& request,
                                        const OperationContext& context) {
  const PlacementReport placed = deployment_.deploy(deploymentOf(workspace, request), Asker::hand, context);
  for (const auto& placement : placed.done) {
    if (!placement.changed) continue;
    library_.store.logAudit({.action = "export_to_project",
                             .skillId = placement.skillId,
                             .skillName = placement.skillName,
                             .tool = placement.tool,
                             .detail = placement.targetPath});
  }
  return asApplied(placed);
}

Plan ProjectExchange::planExport(const Workspace& workspace, const ProjectExport& request) {
  if (isLinked(workspace)) return deployment_.planDeploy(deploymentOf(workspace, request));
  workspace.requireExists();
  return ProjectExportBatch(library_, workspace, request).plan();
}

InstallRequest ProjectExchange::importRequest(const Workspace& workspace, const fs::path& path) {
  workspace.requireExists();
  const ProjectSkill skill = ProjectComparison({}).compareOne(workspace, path);
  refuseOutside(workspace, skill);
  return {.folder = skill.path,
          .name = {},
          .source = {.type = SourceType::imported,
                     .ref = skill.path,
                     .resolved = {},
                     .branch = {},
                     .subpath = {},
                     .revision = {}},
          .action = "import_project_skill"};
}

// The old content goes when the new one stands and the records say so.
void ProjectExchange::pull(const Workspace& workspace, const fs::path& path) {
  const Counterparts pair = checkPull(workspace, path);
  const fs::path target = pair.own.path;
  if (pair.isSame()) return;
  FolderChanges changes(library_);
  TargetChange change = TargetChange::copy(pair.center.centralPath, target, FS::Kind::directory);
  changes.make(change);
  const std::string hash = ContentHash::hashDirectory(target);
  library_.transaction([&] {
    changes.recorded();
    // In a linked workspace the copy can be a recorded deployment.
    for (SkillTarget record : pair.deployments) {
      record.mode = SyncMode::copy;
      record.status = kTargetOk;
      record.lastError.reset();
      record.syncedAt = nowMillis();
      record.sourceHash = hash;
      library_.store.upsertTarget(record);
    }
    library_.store.logAudit({.action = "project_pull_from_center",
                             .skillId = pair.center.id,
                             .skillName = pair.center.name,
                             .tool = pair.own.agent,
                             .detail = pair.own.path});
  });
  change.keep();
}

Plan ProjectExchange::planPull(const Workspace& workspace, const fs::path& path) {
  return planOrRefusal(path, [&]() -> Plan {
    const Counterparts pair = checkPull(workspace, path);
    return {stepFor(pair, pair.own.agent, pair.own.path)};
  });
}

SkillSummary ProjectExchange::push(const Workspace& workspace, const fs::path& path) {
  const Counterparts pair = checkPush(workspace, path);
  if (pair.isSame()) {
    repair_.resyncCopyTargets(pair.center);
    return skills_.summary(pair.center.id);
  }
  const TemporaryFolder staging(library_.user.temp, "orvanta-project-");
  const fs::path staged = staging.path() / "skill";
  FS::copySkillTree(FS::resolved(pair.own.path), staged);
  const SkillMeta before = Skills::metadataBefore(pair.center, pair.center.centralPath);
  CentralSwap swap(staged, pair.center.centralPath);
  const SkillRecord fresh = library_.transaction([&] {
    library_.store.logAudit({.action = "project_push_to_center",
                             .skillId = pair.center.id,
                             .skillName = pair.center.name,
                             .tool = pair.own.agent,
                             .detail = pair.own.path});
    return skills_.refreshRecordFromDisk(pair.center, before);
  });
  swap.keep();
  repair_.resyncCopyTargets(fresh);
  return skills_.summary(fresh.id);
}

Plan ProjectExchange::planPush(const Workspace& workspace, const fs::path& path) {
  return planOrRefusal(path, [&]() -> Plan {
    const Counterparts pair = checkPush(workspace, path);
    Plan plan{stepFor(pair, std::nullopt, pair.center.centralPath)};
    for (const auto& target : repair_.staleCopies(pair.center, pair.own.contentHash)) {
      PlannedStep& step = plan.emplace_back(plan.front());
      step.action = Action::replace;
      step.reason.reset();
      step.tool = target.tool;
      step.path = target.targetPath;
    }
    return plan;
  });
}

PlannedStep ProjectExchange::stepFor(const Counterparts& pair, const std::optional<std::string>& tool,
                                     const std::string& path) {
  return {.action = pair.isSame() ? Action::keep : Action::replace,
          .skillName = pair.center.name,
          .skillId = pair.center.id,
          .tool = tool,
          .path = path,
          .reason = pair.isSame() ? std::optional(pair.reason()) : std::nullopt};
}

ProjectExchange::Counterparts ProjectExchange::counterparts(const Workspace& workspace, const fs::path& path) {
  workspace.requireExists();
  const ProjectComparison comparison(library_.store.allSkills());
  Counterparts pair{.own = comparison.compareOne(workspace, path), .center = {}};
  if (!pair.own.centerSkillId) {
    throw SkillsError::notFound("No library skill matches " + pair.own.name + "; import it instead");
  }
  pair.center = comparison.record(*pair.own.centerSkillId);
  pair.isLink = comparison.isLinkIntoLibrary(pair.own);
  const SkillRecord* alike = comparison.skillInFolder(fs::path(pair.own.path).filename().string());
  if (!pair.isSame() && alike != nullptr && alike->id != pair.center.id) {
    // Whoever publishes a project must not choose which skill of the library is overwritten.
    throw SkillsError::conflict(pair.own.path + " calls itself '" + pair.own.name +
                                "', but its folder is called like '" + alike->name +
                                "' of the library; rename one of them, or import it");
  }
  if (!FS::resolvesToDirectory(pair.center.centralPath)) {
    throw SkillsError::notFound("Library directory missing for '" + pair.center.name + "'");
  }
  return pair;
}

ProjectExchange::Counterparts ProjectExchange::checkPull(const Workspace& workspace, const fs::path& path) {
  Counterparts pair = counterparts(workspace, path);
  if (pair.isSame()) return pair;
  // A link to somewhere else is the user's own arrangement.
  if (pair.own.isSymlink) throw SkillsError::refused(pair.own.path + " is not managed by Orvanta");
  refuseRepository(pair.own.path, "Move the repository away and pull again.");
  SyncEngine::FolderResolver resolver;
  const DeploymentIndex deployments(library_.store.allTargets(), resolver);
  if (const SkillTarget* inner = deployments.below(deployments.place(pair.own.path))) {
    throw SkillsError::refused(pair.own.path + " holds the deployment " + inner->targetPath + "; undeploy that first");
  }
  for (const auto* record : deployments.recordsAt(deployments.place(pair.own.path))) {
    if (record->skillId != pair.center.id) {
      throw SkillsError::refused(pair.own.path +
                                 " is where another skill of the library is deployed; undeploy that first");
    }
    pair.deployments.push_back(*record);
  }
  return pair;
}

ProjectExchange::Counterparts ProjectExchange::checkPush(const Workspace& workspace, const fs::path& path) {
  Counterparts pair = counterparts(workspace, path);
  if (!pair.isSame()) refuseOutside(workspace, pair.own);
  if (!pair.isSame()) refuseRepository(pair.center.centralPath, "Move the repository away and push again.");
  return pair;
}

}  // namespace orvanta
