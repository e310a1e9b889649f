#include "engine/DeploymentIndex.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace orvanta {

DeploymentIndex::DeploymentIndex(std::vector<SkillTarget> targets, SyncEngine::FolderResolver& resolver)
    : targets_(std::move(targets)), resolver_(resolver) {
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    const SkillTarget& target = targets_[i];
    byPair_.emplace(pairKey(target.skillId, target.tool), i);
    // The files of a disabled skill were taken out; what stands at its places is not ours.
    if (target.status != kTargetDisabled) byPlace_.emplace(place(target.targetPath), i);
  }
}

const SkillTarget* DeploymentIndex::find(const std::string& skillId, const std::string& tool) const {
  const auto found = byPair_.find(pairKey(skillId, tool));
  return found == byPair_.end() ? nullptr : &targets_[found->second];
}

std::string DeploymentIndex::place(const std::string& path) const {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return path;
  return resolver_.resolve(path.substr(0, slash)).native() + path.substr(slash);
}

const SkillTarget* DeploymentIndex::otherAt(const std::string& place, const std::string& skillId,
                                            const std::string& tool) const {
  const auto [begin, end] = byPlace_.equal_range(place);
  for (auto entry = begin; entry != end; ++entry) {
    const SkillTarget& target = targets_[entry->second];
    if (target.skillId != skillId || target.tool != tool) return &target;
  }
  return nullptr;
}

std::vector<const SkillTarget*> DeploymentIndex::recordsAt(const std::string& place) const {
  std::vector<const SkillTarget*> records;
  const auto [begin, end] = byPlace_.equal_range(place);
  for (auto entry = begin; entry != end; ++entry) records.push_back(&targets_[entry->second]);
  return records;
}

const SkillTarget* DeploymentIndex::below(const std::string& folder) const {
  const std::string prefix = folder + "/";
  const auto found = std::find_if(byPlace_.begin(), byPlace_.end(),
                                  [&](const auto& entry) { return entry.first.starts_with(prefix); });
  return found == byPlace_.end() ? nullptr : &targets_[found->second];
}

const SkillTarget* DeploymentIndex::copyAround(const std::string& place) const {
  for (auto slash = place.rfind('/'); slash != std::string::npos && slash > 0; slash = place.rfind('/', slash - 1)) {
    const auto [begin, end] = byPlace_.equal_range(place.substr(0, slash));
    for (auto entry = begin; entry != end; ++entry) {
      const SkillTarget& target = targets_[entry->second];
      if (target.mode == SyncMode::copy) return &target;
    }
  }
  return nullptr;
}

void DeploymentIndex::remove(const SkillTarget& target) {
  const std::string where = place(target.targetPath);
  const auto [begin, end] = byPlace_.equal_range(where);
  for (auto entry = begin; entry != end; ++entry) {
    if (&targets_[entry->second] != &target) continue;
    byPlace_.erase(entry);
    return;
  }
}

}  // namespace orvanta
