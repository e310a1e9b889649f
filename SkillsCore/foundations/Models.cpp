#include "foundations/Models.h"

#include <algorithm>
#include <utility>

namespace orvanta {

namespace {

// The one table per enumeration from which writing and parsing are both derived.
template <typename Enum, std::size_t Size>
using Names = std::array<std::pair<Enum, std::string_view>, Size>;

template <typename Enum, std::size_t Size>
std::string_view nameOf(const Names<Enum, Size>& names, Enum value) {
  const auto found = std::find_if(names.begin(), names.end(), [&](const auto& entry) { return entry.first == value; });
  return found == names.end() ? std::string_view{} : found->second;
}

template <typename Enum, std::size_t Size>
std::optional<Enum> valueOf(const Names<Enum, Size>& names, std::string_view raw) {
  const auto found = std::find_if(names.begin(), names.end(), [&](const auto& entry) { return entry.second == raw; });
  if (found == names.end()) return std::nullopt;
  return found->first;
}

constexpr Names<SourceType, 5> kSourceTypes{{{SourceType::local, "local"},
                                             {SourceType::imported, "import"},
                                             {SourceType::git, "git"},
                                             {SourceType::plazza, "plazza"},
                                             {SourceType::wellKnown, "well-known"}}};

constexpr Names<SourceType, 5> kSourceLabels{{{SourceType::local, "Local"},
                                              {SourceType::imported, "Imported"},
                                              {SourceType::git, "Git"},
                                              {SourceType::plazza, "Plazza"},
                                              {SourceType::wellKnown, "Well-known"}}};

constexpr Names<UpdateStatus, 8> kUpdateStatuses{{{UpdateStatus::unknown, "unknown"},
                                                  {UpdateStatus::checking, "checking"},
                                                  {UpdateStatus::updating, "updating"},
                                                  {UpdateStatus::upToDate, "up_to_date"},
                                                  {UpdateStatus::available, "available"},
                                                  {UpdateStatus::error, "error"},
                                                  {UpdateStatus::localOnly, "local_only"},
                                                  {UpdateStatus::sourceMissing, "source_missing"}}};

constexpr Names<SyncMode, 2> kSyncModes{{{SyncMode::symlink, "symlink"}, {SyncMode::copy, "copy"}}};

constexpr Names<ToolCategory, 2> kToolCategories{
    {{ToolCategory::coding, "coding"}, {ToolCategory::lobster, "lobster"}}};

constexpr Names<WorkspaceType, 2> kWorkspaceTypes{
    {{WorkspaceType::project, "project"}, {WorkspaceType::linked, "linked"}}};

constexpr Names<ProjectSyncStatus, 5> kProjectSyncStatuses{{{ProjectSyncStatus::projectOnly, "project_only"},
                                                            {ProjectSyncStatus::inSync, "in_sync"},
                                                            {ProjectSyncStatus::projectNewer, "project_newer"},
                                                            {ProjectSyncStatus::centerNewer, "center_newer"},
                                                            {ProjectSyncStatus::diverged, "diverged"}}};

constexpr Names<AgentSkillEntry::Kind, 4> kEntryKinds{
    {{AgentSkillEntry::Kind::managed, "managed"},
     {AgentSkillEntry::Kind::unmanagedInLibrary, "unmanagedInLibrary"},
     {AgentSkillEntry::Kind::unmanaged, "unmanaged"},
     {AgentSkillEntry::Kind::missing, "missing"}}};

constexpr Names<LeaderboardKind, 3> kLeaderboardKinds{
    {{LeaderboardKind::allTime, "all"}, {LeaderboardKind::trending, "trending"}, {LeaderboardKind::hot, "hot"}}};

}  // namespace

std::string_view rawValue(SourceType type) { return nameOf(kSourceTypes, type); }
std::string_view label(SourceType type) { return nameOf(kSourceLabels, type); }
std::optional<SourceType> parseSourceType(std::string_view raw) { return valueOf(kSourceTypes, raw); }
bool isRemote(SourceType type) { return type == SourceType::git || type == SourceType::plazza; }

std::string_view rawValue(UpdateStatus status) { return nameOf(kUpdateStatuses, status); }
std::optional<UpdateStatus> parseUpdateStatus(std::string_view raw) { return valueOf(kUpdateStatuses, raw); }

std::string_view rawValue(SyncMode mode) { return nameOf(kSyncModes, mode); }
std::optional<SyncMode> parseSyncMode(std::string_view raw) { return valueOf(kSyncModes, raw); }

std::string_view rawValue(ToolCategory category) { return nameOf(kToolCategories, category); }
std::optional<ToolCategory> parseToolCategory(std::string_view raw) { return valueOf(kToolCategories, raw); }

std::string_view rawValue(WorkspaceType type) { return nameOf(kWorkspaceTypes, type); }
std::optional<WorkspaceType> parseWorkspaceType(std::string_view raw) { return valueOf(kWorkspaceTypes, raw); }

std::string_view rawValue(ProjectSyncStatus status) { return nameOf(kProjectSyncStatuses, status); }
std::optional<ProjectSyncStatus> parseProjectSyncStatus(std::string_view raw) {
  return valueOf(kProjectSyncStatuses, raw);
}

std::string_view rawValue(AgentSkillEntry::Kind kind) { return nameOf(kEntryKinds, kind); }

std::string_view rawValue(LeaderboardKind kind) { return nameOf(kLeaderboardKinds, kind); }
std::optional<LeaderboardKind> parseLeaderboardKind(std::string_view raw) { return valueOf(kLeaderboardKinds, raw); }

std::vector<std::string> SkillSummary::deployedTools() const {
  std::vector<std::string> tools;
  for (const auto& target : targets) {
    if (target.status == kTargetOk) tools.push_back(target.tool);
  }
  return tools;
}

bool Preset::isToolEnabled(const std::string& skillId, const std::string& tool) const {
  const auto skill = toolToggles.find(skillId);
  if (skill == toolToggles.end()) return true;
  const auto toggle = skill->second.find(tool);
  return toggle == skill->second.end() || toggle->second;
}

void SyncHealth::count(ProjectSyncStatus status) {
  switch (status) {
    case ProjectSyncStatus::projectOnly: ++projectOnly; break;
    case ProjectSyncStatus::inSync: ++inSync; break;
    case ProjectSyncStatus::projectNewer: ++projectNewer; break;
    case ProjectSyncStatus::centerNewer: ++centerNewer; break;
    case ProjectSyncStatus::diverged: ++diverged; break;
  }
}

}  // namespace orvanta
