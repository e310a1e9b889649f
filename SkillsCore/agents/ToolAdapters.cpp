#include "agents/ToolAdapters.h"

#include <algorithm>
#include <unordered_map>

#include "files/FS.h"
#include "files/Paths.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

// Whether something, link or not, can be reached at the path.
bool isReachable(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

ToolAdapter customAdapter(const CustomToolDefinition& definition) {
  ToolAdapter adapter;
  adapter.key = definition.key;
  adapter.displayName = definition.displayName;
  adapter.overrideSkillsDir = definition.skillsDir;
  adapter.projectRelativeSkillsDirOverride = definition.projectRelativeSkillsDir;
  adapter.isCustom = true;
  adapter.category = definition.category;
  return adapter;
}

// The user's folders apply to custom agents too, so that `agent path` works for every agent.
void applyPaths(ToolAdapter& adapter, const ToolOverrides& overrides) {
  const auto global = overrides.pathOverrides.find(adapter.key);
  if (global != overrides.pathOverrides.end()) adapter.overrideSkillsDir = global->second;
  const auto project = overrides.projectPathOverrides.find(adapter.key);
  if (project != overrides.projectPathOverrides.end()) adapter.projectRelativeSkillsDirOverride = project->second;
}

}  // namespace

fs::path ToolAdapter::skillsDir(const UserFolders& user) const {
  if (overrideSkillsDir) return standardized(expandingTilde(*overrideSkillsDir, user.home));
  return selectExistingOrDefault(candidatePaths(relativeSkillsDir, user));
}

bool ToolAdapter::isInstalled(const UserFolders& user) const {
  if (isCustom || hasPathOverride()) return true;
  const auto candidates = candidatePaths(relativeDetectDir, user);
  return std::any_of(candidates.begin(), candidates.end(), isReachable);
}

std::vector<fs::path> ToolAdapter::additionalExistingScanDirs(const UserFolders& user) const {
  std::vector<fs::path> existing;
  for (const auto& relative : additionalScanDirs) {
    for (auto& candidate : candidatePaths(relative, user)) {
      if (isReachable(candidate)) existing.push_back(std::move(candidate));
    }
  }
  return existing;
}

std::vector<fs::path> ToolAdapter::allScanDirs(const UserFolders& user) const {
  std::vector<fs::path> folders{skillsDir(user)};
  for (auto& extra : additionalExistingScanDirs(user)) {
    if (extra != folders.front()) folders.push_back(std::move(extra));
  }
  return folders;
}

std::vector<fs::path> ToolAdapter::candidatePaths(std::string_view relative, const UserFolders& user) {
  constexpr std::string_view kConfig = ".config/";
  std::vector<fs::path> candidates{standardized(user.home / relative)};
  if (relative.substr(0, kConfig.size()) == kConfig) {
    fs::path inConfig = standardized(user.config / relative.substr(kConfig.size()));
    if (inConfig != candidates.front()) candidates.push_back(std::move(inConfig));
  }
  return candidates;
}

fs::path ToolAdapter::selectExistingOrDefault(const std::vector<fs::path>& candidates) {
  const auto existing = std::find_if(candidates.begin(), candidates.end(), isReachable);
  return existing == candidates.end() ? candidates.front() : *existing;
}

std::vector<ToolAdapter> ToolAdapters::all(const Overrides& overrides) {
  std::vector<ToolAdapter> adapters = builtin();
  for (const auto& definition : overrides.customTools) adapters.push_back(customAdapter(definition));
  for (auto& adapter : adapters) applyPaths(adapter, overrides);

  // A key that the user's order lists twice keeps its first place.
  std::unordered_map<std::string, std::size_t> rank;
  for (std::size_t i = 0; i < overrides.order.size(); ++i) rank.emplace(overrides.order[i], i);
  const auto rankOf = [&](const ToolAdapter& adapter) {
    const auto listed = rank.find(adapter.key);
    return listed == rank.end() ? overrides.order.size() : listed->second;
  };
  std::stable_sort(adapters.begin(), adapters.end(),
                   [&](const ToolAdapter& a, const ToolAdapter& b) { return rankOf(a) < rankOf(b); });
  return adapters;
}

std::vector<ToolAdapter> ToolAdapters::active(const Overrides& overrides, const UserFolders& user) {
  std::vector<ToolAdapter> adapters = all(overrides);
  std::erase_if(adapters, [&](const ToolAdapter& adapter) {
    return overrides.disabled.contains(adapter.key) || !adapter.isInstalled(user);
  });
  return adapters;
}

std::optional<ToolAdapter> ToolAdapters::find(std::string_view key, const Overrides& overrides) {
  for (auto& adapter : all(overrides)) {
    if (adapter.key == key) return std::move(adapter);
  }
  return std::nullopt;
}

}  // namespace orvanta
