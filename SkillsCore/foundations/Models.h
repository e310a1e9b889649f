#pragma once

// The records that the store, the engine and the faces pass to one another: plain values, copied freely, compared field
// by field. The raw values of the enumerations are persistent (database, settings, JSON) and spelled exactly as here.

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

// Where a skill in the library came from.
enum class SourceType { local, imported, git, plazza, wellKnown };
inline constexpr std::array kAllSourceTypes{SourceType::local, SourceType::imported, SourceType::git,
                                            SourceType::plazza, SourceType::wellKnown};
std::string_view rawValue(SourceType type);
std::string_view label(SourceType type);
std::optional<SourceType> parseSourceType(std::string_view raw);

// True for sources that are asked for newer revisions over the network. Well-known sites are fetched once and so are
// not among them.
bool isRemote(SourceType type);

// The update state of one skill.
enum class UpdateStatus { unknown, checking, updating, upToDate, available, error, localOnly, sourceMissing };
std::string_view rawValue(UpdateStatus status);
std::optional<UpdateStatus> parseUpdateStatus(std::string_view raw);

// How a skill is placed into an agent's folder.
enum class SyncMode { symlink, copy };
inline constexpr std::array kAllSyncModes{SyncMode::symlink, SyncMode::copy};
std::string_view rawValue(SyncMode mode);
std::optional<SyncMode> parseSyncMode(std::string_view raw);

enum class ToolCategory { coding, lobster };
inline constexpr std::array kAllToolCategories{ToolCategory::coding, ToolCategory::lobster};
std::string_view rawValue(ToolCategory category);
std::optional<ToolCategory> parseToolCategory(std::string_view raw);

enum class WorkspaceType { project, linked };
std::string_view rawValue(WorkspaceType type);
std::optional<WorkspaceType> parseWorkspaceType(std::string_view raw);

// How a skill inside a project compares with the library.
enum class ProjectSyncStatus { projectOnly, inSync, projectNewer, centerNewer, diverged };
inline constexpr std::array kAllProjectSyncStatuses{ProjectSyncStatus::projectOnly, ProjectSyncStatus::inSync,
                                                    ProjectSyncStatus::projectNewer, ProjectSyncStatus::centerNewer,
                                                    ProjectSyncStatus::diverged};
std::string_view rawValue(ProjectSyncStatus status);
std::optional<ProjectSyncStatus> parseProjectSyncStatus(std::string_view raw);

// Statuses of a skill.
inline constexpr std::string_view kSkillOk = "ok";
inline constexpr std::string_view kSkillMissing = "missing";  // its folder is gone

// One skill in the library.
struct SkillRecord {
  std::string id;
  std::string name;
  std::optional<std::string> description;
  SourceType sourceType = SourceType::local;
  std::optional<std::string> sourceRef;  // a local path, repository address, directory id or site, by source type
  std::optional<std::string> sourceRefResolved;  // for example the clone address actually used
  std::optional<std::string> sourceSubpath;
  std::optional<std::string> sourceBranch;
  std::optional<std::string> sourceRevision;
  std::optional<std::string> remoteRevision;
  std::string centralPath;  // absolute folder in the library, unique among skills
  std::optional<std::string> contentHash;
  bool enabled = true;
  std::int64_t createdAt = 0;
  std::int64_t updatedAt = 0;
  std::string status{kSkillOk};
  UpdateStatus updateStatus = UpdateStatus::unknown;
  std::optional<std::int64_t> lastCheckedAt;
  std::optional<std::string> lastCheckError;

  friend bool operator==(const SkillRecord&, const SkillRecord&) = default;
};

// Statuses of a deployment that the system writes.
inline constexpr std::string_view kTargetOk = "ok";
inline constexpr std::string_view kTargetDisabled = "disabled";
inline constexpr std::string_view kTargetError = "error";

// A skill and an agent that has, shall have or shall lose it.
struct SkillToolPair {
  std::string skillId;
  std::string tool;  // the agent's key

  friend auto operator<=>(const SkillToolPair&, const SkillToolPair&) = default;
};

// One deployment of a skill to one agent.
struct SkillTarget {
  std::string id;
  std::string skillId;
  std::string tool;        // the agent's key
  std::string targetPath;  // absolute path of the placed folder or link
  SyncMode mode = SyncMode::symlink;
  std::string status{kTargetOk};
  std::optional<std::int64_t> syncedAt;
  std::optional<std::string> lastError;
  std::optional<std::string> sourceHash;  // content hash of the library folder when the copy was made

  friend bool operator==(const SkillTarget&, const SkillTarget&) = default;
};

// What a list shows for one skill.
struct SkillSummary {
  SkillRecord record;
  std::vector<std::string> tags;
  std::vector<SkillTarget> targets;
  std::vector<std::string> presetIds;

  // The agents of all targets whose status is "ok", in the order of `targets`.
  [[nodiscard]] std::vector<std::string> deployedTools() const;

  friend bool operator==(const SkillSummary&, const SkillSummary&) = default;
};

struct TagCount {
  std::string tag;
  std::int64_t count = 0;

  friend bool operator==(const TagCount&, const TagCount&) = default;
};

// An agent that the user defined.
struct CustomToolDefinition {
  std::string key;
  std::string displayName;
  std::string skillsDir;
  std::optional<std::string> projectRelativeSkillsDir;
  ToolCategory category = ToolCategory::coding;

  friend bool operator==(const CustomToolDefinition&, const CustomToolDefinition&) = default;
};

// The user's changes to the table of agents.
struct ToolOverrides {
  std::map<std::string, std::string> pathOverrides;         // agent key → global skills folder
  std::map<std::string, std::string> projectPathOverrides;  // agent key → skills folder relative to a project
  std::vector<CustomToolDefinition> customTools;
  std::set<std::string> disabled;
  std::vector<std::string> order;

  friend bool operator==(const ToolOverrides&, const ToolOverrides&) = default;
};

// One agent as a list shows it.
struct ToolInfo {
  std::string key;
  std::string displayName;
  std::string skillsDir;
  std::string projectRelativeSkillsDir;
  bool installed = false;
  bool enabled = true;
  bool isCustom = false;
  bool hasPathOverride = false;
  bool recursiveScan = false;
  ToolCategory category = ToolCategory::coding;
  std::int64_t deployedCount = 0;

  [[nodiscard]] bool isActive() const { return installed && enabled; }

  friend bool operator==(const ToolInfo&, const ToolInfo&) = default;
};

// One skill folder found in an agent's folder.
struct AgentSkillEntry {
  enum class Kind {
    managed,             // placed by this system
    unmanagedInLibrary,  // not placed by this system, but the library holds the same skill
    unmanaged,
    missing,  // a recorded placement whose folder is gone
  };

  std::string id;
  std::string name;
  std::optional<std::string> description;
  std::string path;
  std::string relativePath;  // below the agent's skills folder
  Kind kind = Kind::unmanaged;
  bool isSymlink = false;
  std::optional<std::string> skillId;
  std::optional<SyncMode> mode;
  std::optional<std::string> contentHash;

  friend bool operator==(const AgentSkillEntry&, const AgentSkillEntry&) = default;
};
std::string_view rawValue(AgentSkillEntry::Kind kind);

struct DiscoveredLocation {
  std::string id;
  std::string tool;
  std::string foundPath;

  friend bool operator==(const DiscoveredLocation&, const DiscoveredLocation&) = default;
};

// Skill folders with the same content and name, found in agents' folders.
struct DiscoveredGroup {
  std::string name;
  std::optional<std::string> description;
  std::string fingerprint;
  std::vector<DiscoveredLocation> locations;
  bool imported = false;
  std::int64_t foundAt = 0;

  [[nodiscard]] std::string id() const { return fingerprint + "|" + name; }

  friend bool operator==(const DiscoveredGroup&, const DiscoveredGroup&) = default;
};

// A named set of skills with per-agent switches.
struct Preset {
  std::string id;
  std::string name;
  std::optional<std::string> description;
  std::optional<std::string> icon;
  std::int64_t sortOrder = 0;
  std::int64_t createdAt = 0;
  std::int64_t updatedAt = 0;
  std::vector<std::string> skillIds;
  std::map<std::string, std::map<std::string, bool>> toolToggles;  // skill id → agent key → wanted

  // An agent is wanted unless it was switched off for this skill.
  [[nodiscard]] bool isToolEnabled(const std::string& skillId, const std::string& tool) const;

  friend bool operator==(const Preset&, const Preset&) = default;
};

// How much of what a preset wants is deployed, in pairs of skill and agent.
struct PresetActivation {
  std::int64_t active = 0;
  std::int64_t total = 0;

  [[nodiscard]] bool isComplete() const { return total > 0 && active == total; }

  friend bool operator==(const PresetActivation&, const PresetActivation&) = default;
};

// Counts of a bulk operation; `errors` has one complete text per failure.
struct ApplyReport {
  std::int64_t deployed = 0;
  std::int64_t removed = 0;
  std::int64_t skipped = 0;
  std::vector<std::string> errors;

  friend bool operator==(const ApplyReport&, const ApplyReport&) = default;
};

// One project or linked agent folder registered with the library.
struct ProjectRecord {
  std::string id;
  std::string name;
  std::string path;
  WorkspaceType workspaceType = WorkspaceType::project;
  std::optional<std::string> linkedAgentKey;
  std::optional<std::string> linkedAgentName;
  std::optional<std::string> disabledPath;
  std::int64_t sortOrder = 0;
  std::int64_t createdAt = 0;
  std::int64_t updatedAt = 0;

  friend bool operator==(const ProjectRecord&, const ProjectRecord&) = default;
};

// How many skills of a workspace compare how with the library.
struct SyncHealth {
  std::int64_t inSync = 0;
  std::int64_t projectNewer = 0;
  std::int64_t centerNewer = 0;
  std::int64_t diverged = 0;
  std::int64_t projectOnly = 0;

  void count(ProjectSyncStatus status);
  // The skills for which somebody has to decide which side is right.
  [[nodiscard]] std::int64_t needsAttention() const { return projectNewer + centerNewer + diverged; }

  friend bool operator==(const SyncHealth&, const SyncHealth&) = default;
};

// One workspace as a list shows it.
struct ProjectInfo {
  ProjectRecord record;
  std::int64_t skillCount = 0;
  SyncHealth health;
  bool exists = false;  // its folder does

  friend bool operator==(const ProjectInfo&, const ProjectInfo&) = default;
};

// One skill inside a workspace.
struct ProjectSkill {
  std::string name;
  std::optional<std::string> description;
  std::string path;          // absolute
  std::string relativePath;  // below the agent's folder, or the one of its disabled skills
  std::string agent;         // its key
  std::string agentDisplayName;
  bool enabled = true;
  bool isSymlink = false;
  bool inCenter = false;  // the library has a skill of this name
  std::optional<std::string> centerSkillId;
  ProjectSyncStatus syncStatus = ProjectSyncStatus::projectOnly;
  std::optional<std::int64_t> lastModifiedAt;
  std::optional<std::string> contentHash;

  [[nodiscard]] std::string id() const { return agent + "|" + path; }

  friend bool operator==(const ProjectSkill&, const ProjectSkill&) = default;
};

// A folder that holds skills of agents, and so may be worth registering.
struct ScannedProject {
  std::string path;
  std::string name;
  std::vector<std::string> agents;  // keys
  std::int64_t skillCount = 0;
  bool alreadyAdded = false;

  friend bool operator==(const ScannedProject&, const ScannedProject&) = default;
};

// A skill that a Git repository holds.
struct GitPreviewSkill {
  std::string relativePath;  // below the folder that was asked for; "." for that folder itself
  std::string name;
  std::optional<std::string> description;
  bool alreadyInstalled = false;  // the library has a skill from this folder of this repository

  friend bool operator==(const GitPreviewSkill&, const GitPreviewSkill&) = default;
};

// What a Git source holds, without installing it.
struct GitPreview {
  std::string originalURL;  // as typed, without credentials
  std::string cloneURL;
  std::optional<std::string> branch;
  std::string revision;
  std::vector<GitPreviewSkill> skills;

  friend bool operator==(const GitPreview&, const GitPreview&) = default;
};

// Which list of the community directory.
enum class LeaderboardKind { allTime, trending, hot };
inline constexpr std::array kAllLeaderboardKinds{LeaderboardKind::allTime, LeaderboardKind::trending,
                                                 LeaderboardKind::hot};
std::string_view rawValue(LeaderboardKind kind);
std::optional<LeaderboardKind> parseLeaderboardKind(std::string_view raw);

// One skill of the community directory, as strangers describe it.
struct PlazzaSkill {
  std::string id;
  std::string skillId;  // its name in the repository
  std::string name;
  std::string source;  // the repository on GitHub: "OWNER/REPO"
  std::int64_t installs = 0;

  // "OWNER/REPO/SKILL": what it is installed by.
  [[nodiscard]] std::string address() const { return source + "/" + skillId; }

  friend bool operator==(const PlazzaSkill&, const PlazzaSkill&) = default;
};

// One snapshot of the library.
struct BackupCommit {
  std::string sha;
  std::int64_t date = 0;  // milliseconds
  std::string message;    // its first line

  friend bool operator==(const BackupCommit&, const BackupCommit&) = default;
};

// The state of the library's backup.
struct BackupStatus {
  bool isRepository = false;
  std::optional<std::string> remoteURL;  // credentials hidden
  std::optional<std::string> branch;
  std::int64_t dirtyFiles = 0;  // changed paths that no snapshot holds
  std::optional<BackupCommit> lastCommit;
  std::int64_t ahead = 0;   // snapshots that the remote does not have, as far as is known
  std::int64_t behind = 0;  // and the other way round
  bool gitAvailable = false;
  std::vector<std::string> pendingConflicts;  // names of skills for which this library and the remote's differ

  friend bool operator==(const BackupStatus&, const BackupStatus&) = default;
};

// One row of the audit log.
struct AuditEntry {
  std::int64_t id = 0;
  std::int64_t timestamp = 0;
  std::string action;
  std::optional<std::string> skillId;
  std::optional<std::string> skillName;
  std::optional<std::string> tool;
  bool success = true;
  std::optional<std::string> detail;

  friend bool operator==(const AuditEntry&, const AuditEntry&) = default;
};

struct DashboardStats {
  std::int64_t totalSkills = 0;
  std::int64_t enabledSkills = 0;
  std::int64_t installedAgents = 0;
  std::int64_t activeAgents = 0;
  std::int64_t presets = 0;
  std::int64_t projects = 0;
  std::int64_t updatesAvailable = 0;
  std::int64_t brokenTargets = 0;
  std::int64_t tags = 0;
  std::int64_t librarySizeBytes = 0;

  friend bool operator==(const DashboardStats&, const DashboardStats&) = default;
};

// One file inside a skill folder.
struct SkillFileEntry {
  std::string relativePath;
  std::int64_t size = 0;
  bool isExecutable = false;

  friend bool operator==(const SkillFileEntry&, const SkillFileEntry&) = default;
};

}  // namespace orvanta
