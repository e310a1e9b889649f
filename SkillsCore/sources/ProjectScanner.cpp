#include "sources/ProjectScanner.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "content/Scanner.h"
#include "files/FS.h"
#include "files/FileReader.h"
#include "files/FolderWalk.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"

namespace orvanta::ProjectScanner {

namespace fs = std::filesystem;

namespace {

// File systems and archives keep times too coarsely for less to mean anything.
bool isNewer(std::int64_t time, std::int64_t than) {
  constexpr std::uint64_t kSlackMs = 1000;
  return time > than && static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(than) > kSlackMs;
}

bool isSkipped(const std::string& name) { return std::find(scanSkip.begin(), scanSkip.end(), name) != scanSkip.end(); }

// Where agents keep skills below a project.
struct SkillsFolder {
  fs::path relative;
  std::string agent;
  bool recursive = false;
};

// The folder below a project, or nothing for one that would lie elsewhere.
std::optional<fs::path> projectRelative(const ToolAdapter& adapter) {
  const fs::path given = adapter.projectRelativeSkillsDir();
  if (given.empty() || given.is_absolute() || std::find(given.begin(), given.end(), "..") != given.end()) {
    return std::nullopt;
  }
  return fs::path(fsPath(given.lexically_normal()));
}

// The distinct skills folders in the agents' order.
std::vector<SkillsFolder> skillsFolders(const std::vector<ToolAdapter>& adapters) {
  std::vector<SkillsFolder> folders;
  std::set<fs::path> seen;
  for (const ToolAdapter& adapter : adapters) {
    const auto relative = projectRelative(adapter);
    if (relative && seen.insert(*relative).second) folders.push_back({*relative, adapter.key, adapter.recursiveScan});
  }
  return folders;
}

// Folders that the walk must not enter, by the folder that holds them: that takes one look for each folder.
class ClosedFolders {
 public:
  void add(const fs::path& folder) {
    const std::lock_guard lock(mutex_);
    names_[folder.parent_path().string()].push_back(folder.filename().string());
  }

  void removeFrom(WalkedFolder& folder) {
    const std::lock_guard lock(mutex_);
    const auto closed = names_.find(folder.path);
    if (closed == names_.end()) return;
    for (const std::string& name : closed->second) std::erase(folder.folders, name);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::vector<std::string>> names_;
};

class ProjectScan {
 public:
  ProjectScan(const fs::path& root, const std::vector<ToolAdapter>& adapters, const ScanScope& scope)
      : root_(standardized(root)),
        realRoot_(FS::resolved(root_)),
        scope_(scope),
        skillsFolders_(skillsFolders(adapters)) {
    for (std::size_t i = 0; i < skillsFolders_.size(); ++i) {
      byFirstName_[skillsFolders_[i].relative.begin()->string()].push_back(i);
    }
    for (const fs::path& folder : scope.excluded) closed_.add(folder);
  }

  std::vector<ScannedProject> run(int maxDepth, const OperationContext& context) {
    walkFolders(realRoot_, maxDepth, context, [this](WalkedFolder& folder) { visit(folder); });
    std::sort(found_.begin(), found_.end(),
              [](const ScannedProject& a, const ScannedProject& b) { return a.path < b.path; });
    return std::move(found_);
  }

 private:
  void visit(WalkedFolder& folder) {
    const auto candidates = candidatesIn(folder);
    if (!candidates.empty()) look(folder.path, candidates);
    std::erase_if(folder.folders, isSkipped);
    closed_.removeFrom(folder);
  }

  // The skills folders that the folder may have, in the agents' order, by nothing but the names in it: of a whole home
  // only few folders need a closer look.
  std::vector<std::size_t> candidatesIn(const WalkedFolder& folder) const {
    std::vector<std::size_t> candidates;
    for (const auto* names : {&folder.folders, &folder.links}) {
      for (const std::string& name : *names) {
        const auto match = byFirstName_.find(name);
        if (match != byFirstName_.end())
          candidates.insert(candidates.end(), match->second.begin(), match->second.end());
      }
    }
    std::sort(candidates.begin(), candidates.end());
    return candidates;
  }

  void look(const fs::path& folder, const std::vector<std::size_t>& candidates) {
    ScannedProject project;
    std::set<fs::path> counted;
    for (const std::size_t candidate : candidates) {
      const SkillsFolder& skills = skillsFolders_[candidate];
      const fs::path place = folder / skills.relative;
      if (!FS::resolvesToDirectory(place)) continue;
      const fs::path real = FS::resolved(place);
      if (!isInside(real, realRoot_) || isExcluded(real) || !counted.insert(real).second) continue;
      const std::size_t count = Scanner::listSkillDirs(place, skills.recursive).size();
      if (count == 0) continue;
      project.agents.push_back(skills.agent);
      project.skillCount += static_cast<std::int64_t>(count);
      // Only below this folder can the walk still be kept out, whatever order it takes.
      if (isInside(real, folder)) closed_.add(real);
    }
    if (!project.agents.empty()) record(folder, std::move(project));
  }

  void record(const fs::path& folder, ScannedProject project) {
    project.path = fsPath(root_ / folder.lexically_relative(realRoot_));
    if (folder == realRoot_) project.path = fsPath(root_);
    project.name = fs::path(project.path).filename().string();
    project.alreadyAdded = scope_.known.contains(folder);
    const std::lock_guard lock(mutex_);
    found_.push_back(std::move(project));
  }

  bool isExcluded(fs::path real) const {
    while (!scope_.excluded.contains(real) && real.has_relative_path()) real = real.parent_path();
    return scope_.excluded.contains(real);
  }

  const fs::path root_;
  const fs::path realRoot_;
  const ScanScope& scope_;
  const std::vector<SkillsFolder> skillsFolders_;
  std::unordered_map<std::string, std::vector<std::size_t>> byFirstName_;
  ClosedFolders closed_;
  std::mutex mutex_;
  std::vector<ScannedProject> found_;
};

void requireFolder(const fs::path& root) {
  if (!FS::exists(FS::resolved(root))) {
    throw SkillsError::notFound("There is no folder " + root.string() + " to scan; choose one that exists");
  }
  if (!FS::resolvesToDirectory(root)) {
    throw SkillsError::invalidInput(root.string() + " is not a folder; choose one to scan for projects");
  }
  openFolder(root);
}

}  // namespace

ProjectSyncStatus classifySyncStatus(const std::optional<std::string>& projectHash,
                                     const std::optional<std::int64_t>& projectModified,
                                     const std::optional<SkillState>& center) {
  if (!center) return ProjectSyncStatus::projectOnly;
  if (projectHash && projectHash == center->contentHash) return ProjectSyncStatus::inSync;
  if (!projectModified || !center->modifiedMs) return ProjectSyncStatus::diverged;
  if (isNewer(*projectModified, *center->modifiedMs)) return ProjectSyncStatus::projectNewer;
  if (isNewer(*center->modifiedMs, *projectModified)) return ProjectSyncStatus::centerNewer;
  return ProjectSyncStatus::diverged;
}

std::vector<ScannedProject> scanProjects(const fs::path& root, int maxDepth, const std::vector<ToolAdapter>& adapters,
                                         const ScanScope& scope, const OperationContext& context) {
  requireFolder(root);
  return ProjectScan(root, adapters, scope).run(maxDepth, context);
}

}  // namespace orvanta::ProjectScanner
