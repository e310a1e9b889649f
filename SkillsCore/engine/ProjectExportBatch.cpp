#include "engine/ProjectExportBatch.h"

#include <algorithm>
#include <mutex>
#include <set>

#include "content/ContentHash.h"
#include "engine/DeployBatch.h"
#include "engine/Pairs.h"
#include "engine/RepositoryGuard.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Parallel.h"

namespace orvanta {

namespace fs = std::filesystem;

using Action = PlannedStep::Action;

namespace {

// What stands in an agent's global folder is recorded, and so is not for an export.
std::optional<SkillsError> whyAgentsOwn(const Workspace::Folder& folder, const std::vector<ToolAdapter>& adapters,
                                        const UserFolders& user) {
  for (const auto& adapter : adapters) {
    if (!isInside(folder.real, FS::resolved(adapter.skillsDir(user)))) continue;
    return SkillsError::refused(folder.path.string() + " is the global skills folder of " + adapter.displayName +
                                "; use 'deploy' for it");
  }
  return std::nullopt;
}

bool isSameContent(const fs::path& a, const fs::path& b) {
  try {
    return ContentHash::hashDirectory(a) == ContentHash::hashDirectory(b);
  } catch (const SkillsError&) {
    return false;
  }
}

}  // namespace

ProjectExportBatch::ProjectExportBatch(Library& library, const Workspace& workspace, const ProjectExport& request)
    : library_(library),
      mode_(request.mode),
      force_(request.force),
      deployments_(library.store.allTargets(), resolver_),
      changes_(library) {
  for (auto& skill : library_.store.allSkills()) skills_.emplace(skill.id, std::move(skill));
  const auto adapters = ToolAdapters::all(library.store.toolOverrides());
  for (const auto& tool : request.agents) findDestination(tool, workspace, adapters);
  for (auto& names : pairsOf(request.skillIds, request.agents)) {
    Item& item = items_.emplace_back();
    item.names = std::move(names);
    item.agentName = item.names.tool;
    try {
      locate(item);
    } catch (const SkillsError& error) {
      item.failure = error;
    }
  }
}

Plan ProjectExportBatch::plan() {
  Plan plan;
  std::set<fs::path> filled;  // places that an earlier pair of this plan fills
  for (auto& item : items_) {
    PlannedStep step{.action = Action::refused,
                     .skillName = item.skillName(),
                     .skillId = item.names.skillId,
                     .tool = item.names.tool,
                     .path = item.target.string(),
                     .reason = {}};
    try {
      if (item.failure) throw SkillsError(*item.failure);
      examine(item);
      step.action = filled.insert(item.place).second ? item.action : Action::keep;
    } catch (const SkillsError& error) {
      step.reason = error.message();
    }
    plan.push_back(step);
  }
  return plan;
}

void ProjectExportBatch::place(const OperationContext& context) {
  std::map<fs::path, std::vector<Item*>> byPlace;  // agents that share a folder take turns
  for (auto& item : items_) {
    if (item.failure) continue;
    byPlace[item.place].push_back(&item);
  }
  std::vector<std::vector<Item*>*> groups;
  for (auto& [place, group] : byPlace) groups.push_back(&group);
  std::mutex progress;
  std::size_t finished = 0;
  parallelFor(groups.size(), [&](std::size_t g) {
    if (context.stop.stop_requested()) return;
    const Item* sharing = nullptr;
    for (Item* item : *groups[g]) {
      prepare(*item, sharing);
      if (item->isPrepared) sharing = item;
    }
    const std::lock_guard lock(progress);
    context.report("Exporting", finished += groups[g]->size(), items_.size());
  });
  makeAll();
}

void ProjectExportBatch::keep() {
  for (auto& item : items_) item.change.keep();
}

// `sharing` is the item before this one that is given the same place.
void ProjectExportBatch::prepare(Item& item, const Item* sharing) {
  try {
    if (sharing == nullptr) {
      examine(item);
    } else if (sharing->skill == item.skill) {
      item.sharing = sharing;
    } else {
      throw SkillsError::refused(SyncEngine::refusalMessage(item.target, "is where another of these skills goes"));
    }
    if (item.action != Action::keep) {
      item.change = SyncEngine::prepareAt(item.skill->centralPath, item.target, mode_, item.found);
    }
    item.isPrepared = true;
  } catch (const SkillsError& error) {
    item.failure = error;
  }
}

void ProjectExportBatch::makeAll() {
  changes_.makeEach(items_, [](Item& item, const SkillsError& error) { item.failure = error; });
  for (auto& item : items_) {
    if (item.sharing != nullptr && item.sharing->failure) item.failure = item.sharing->failure;
    item.done = item.isPrepared && !item.failure;
  }
}

void ProjectExportBatch::findDestination(const std::string& tool, const Workspace& workspace,
                                         const std::vector<ToolAdapter>& adapters) {
  Destination& destination = destinations_[tool];
  const auto adapter =
      std::find_if(adapters.begin(), adapters.end(), [&](const ToolAdapter& each) { return each.key == tool; });
  destination.agentName = adapter == adapters.end() ? tool : adapter->displayName;
  const auto& folders = workspace.folders();
  const auto folder = std::find_if(folders.begin(), folders.end(), [&](const Workspace::Folder& each) {
    return each.agent == tool && each.holdsEnabled;
  });
  if (adapter == adapters.end()) {
    destination.failure = SkillsError::notFound("Agent not found: " + tool);
  } else if (folder == folders.end()) {
    destination.failure = SkillsError::invalidInput(
        adapter->displayName + " has no skills folder inside projects; give it one with 'agent project-path'");
  } else if (!folder->obstacle.empty()) {
    destination.failure =
        SkillsError::refused(folder->path.string() + " " + folder->obstacle + "; nothing is placed there");
  } else {
    destination.path = folder->path;
    destination.real = folder->real;
    destination.failure = whyAgentsOwn(*folder, adapters, library_.user);
  }
}

void ProjectExportBatch::locate(Item& item) {
  const Destination& destination = destinations_.at(item.names.tool);
  item.agentName = destination.agentName;
  const auto skill = skills_.find(item.names.skillId);
  if (skill == skills_.end()) throw SkillsError::notFound("Skill not found: " + item.names.skillId);
  item.skill = &skill->second;
  if (const auto failure = whyUndeployable(*item.skill)) throw SkillsError(*failure);
  if (destination.failure) throw SkillsError(*destination.failure);
  const std::string name = SyncEngine::targetDirName(item.skill->centralPath, item.skill->name);
  item.target = destination.path / name;
  item.place = destination.real / name;
}

// Throws what refuses the item, with nothing changed.
void ProjectExportBatch::examine(Item& item) {
  const fs::path source = item.skill->centralPath;
  item.found = SyncEngine::classifyTarget(source, item.target);
  const bool isInPlace = mode_ == SyncMode::symlink
                             ? item.found == TargetState::linkToSource
                             : item.found == TargetState::realDir && isSameContent(source, item.target);
  item.action = Action::keep;
  if (isInPlace) return;
  const bool isFree = item.found == TargetState::absent || item.found == TargetState::linkToSource;
  if (!isFree && !force_) {
    throw SkillsError::refused("Refusing to replace \"" + item.target.string() +
                               "\". The existing content was left untouched — import it into the library, or move it "
                               "aside, and try again.");
  }
  if (item.found == TargetState::realDir) refuseRepository(item.target, "Move the repository away, and try again.");
  if (const SkillTarget* inner = deployments_.below(item.place.string())) {
    throw SkillsError::refused(item.target.string() + " holds the deployment " + inner->targetPath +
                               "; undeploy that first");
  }
  SyncEngine::ensureDstNotInsideSrc(source, item.target, resolver_);
  item.action = item.found == TargetState::absent ? Action::place : Action::replace;
}

}  // namespace orvanta
