#include "foundations/ModelsJSON.h"

#include <utility>

#include "foundations/Clock.h"

namespace orvanta {

namespace {

template <typename T>
void putOptional(Json& json, const char* key, const std::optional<T>& value) {
  if (value) json[key] = *value;
}

std::optional<std::string> optionalText(const Json& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || found->is_null()) return std::nullopt;
  return found->get<std::string>();
}

}  // namespace

std::string jsonText(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::int64_t> wholeNumber(const Json& json) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, the first value that does not fit
  if (json.is_number_unsigned()) {
    const auto number = json.get<std::uint64_t>();
    return std::in_range<std::int64_t>(number) ? std::optional(static_cast<std::int64_t>(number)) : std::nullopt;
  }
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (!json.is_number_float()) return std::nullopt;
  const auto number = json.get<double>();
  return number >= -kLimit && number < kLimit ? std::optional(static_cast<std::int64_t>(number)) : std::nullopt;
}

void to_json(Json& json, const SkillRecord& record) {
  json = Json{{"id", record.id},
              {"name", record.name},
              {"sourceType", rawValue(record.sourceType)},
              {"centralPath", record.centralPath},
              {"enabled", record.enabled},
              {"createdAt", record.createdAt},
              {"updatedAt", record.updatedAt},
              {"status", record.status},
              {"updateStatus", rawValue(record.updateStatus)}};
  putOptional(json, "description", record.description);
  putOptional(json, "sourceRef", record.sourceRef);
  putOptional(json, "sourceRefResolved", record.sourceRefResolved);
  putOptional(json, "sourceSubpath", record.sourceSubpath);
  putOptional(json, "sourceBranch", record.sourceBranch);
  putOptional(json, "sourceRevision", record.sourceRevision);
  putOptional(json, "remoteRevision", record.remoteRevision);
  putOptional(json, "contentHash", record.contentHash);
  putOptional(json, "lastCheckedAt", record.lastCheckedAt);
  putOptional(json, "lastCheckError", record.lastCheckError);
}

void to_json(Json& json, const SkillTarget& target) {
  json = Json{{"id", target.id},
              {"skillId", target.skillId},
              {"tool", target.tool},
              {"targetPath", target.targetPath},
              {"mode", rawValue(target.mode)},
              {"status", target.status}};
  putOptional(json, "syncedAt", target.syncedAt);
  putOptional(json, "lastError", target.lastError);
  putOptional(json, "sourceHash", target.sourceHash);
}

void to_json(Json& json, const SkillSummary& summary) {
  json = Json{{"record", summary.record},
              {"tags", summary.tags},
              {"targets", summary.targets},
              {"presetIds", summary.presetIds}};
}

void to_json(Json& json, const TagCount& tag) { json = Json{{"tag", tag.tag}, {"count", tag.count}}; }

void to_json(Json& json, const ToolInfo& tool) {
  json = Json{{"key", tool.key},
              {"displayName", tool.displayName},
              {"skillsDir", tool.skillsDir},
              {"projectRelativeSkillsDir", tool.projectRelativeSkillsDir},
              {"installed", tool.installed},
              {"enabled", tool.enabled},
              {"isCustom", tool.isCustom},
              {"hasPathOverride", tool.hasPathOverride},
              {"recursiveScan", tool.recursiveScan},
              {"category", rawValue(tool.category)},
              {"deployedCount", tool.deployedCount}};
}

void to_json(Json& json, const AgentSkillEntry& entry) {
  json = Json{{"id", entry.id},
              {"name", entry.name},
              {"path", entry.path},
              {"relativePath", entry.relativePath},
              {"kind", rawValue(entry.kind)},
              {"isSymlink", entry.isSymlink}};
  putOptional(json, "description", entry.description);
  putOptional(json, "skillId", entry.skillId);
  if (entry.mode) json["mode"] = rawValue(*entry.mode);
  putOptional(json, "contentHash", entry.contentHash);
}

void to_json(Json& json, const DiscoveredLocation& location) {
  json = Json{{"id", location.id}, {"tool", location.tool}, {"foundPath", location.foundPath}};
}

void to_json(Json& json, const DiscoveredGroup& group) {
  json = Json{{"id", group.id()},
              {"name", group.name},
              {"fingerprint", group.fingerprint},
              {"locations", group.locations},
              {"imported", group.imported},
              {"foundAt", group.foundAt}};
  putOptional(json, "description", group.description);
}

void to_json(Json& json, const Preset& preset) {
  json = Json{{"id", preset.id},
              {"name", preset.name},
              {"sortOrder", preset.sortOrder},
              {"createdAt", preset.createdAt},
              {"updatedAt", preset.updatedAt},
              {"skillIds", preset.skillIds},
              {"toolToggles", preset.toolToggles}};
  putOptional(json, "description", preset.description);
  putOptional(json, "icon", preset.icon);
}

void to_json(Json& json, const PresetActivation& activation) {
  json = Json{{"active", activation.active}, {"total", activation.total}};
}

void to_json(Json& json, const ApplyReport& report) {
  json = Json{{"deployed", report.deployed},
              {"removed", report.removed},
              {"skipped", report.skipped},
              {"errors", report.errors}};
}

void to_json(Json& json, const ProjectRecord& record) {
  json = Json{{"id", record.id},
              {"name", record.name},
              {"path", record.path},
              {"workspaceType", rawValue(record.workspaceType)},
              {"sortOrder", record.sortOrder},
              {"createdAt", record.createdAt},
              {"updatedAt", record.updatedAt}};
  putOptional(json, "linkedAgentKey", record.linkedAgentKey);
  putOptional(json, "linkedAgentName", record.linkedAgentName);
  putOptional(json, "disabledPath", record.disabledPath);
}

void to_json(Json& json, const SyncHealth& health) {
  json = Json{{"inSync", health.inSync},           {"projectNewer", health.projectNewer},
              {"centerNewer", health.centerNewer}, {"diverged", health.diverged},
              {"projectOnly", health.projectOnly}, {"needsAttention", health.needsAttention()}};
}

void to_json(Json& json, const ProjectInfo& project) {
  json = Json{{"record", project.record},
              {"skillCount", project.skillCount},
              {"health", project.health},
              {"exists", project.exists}};
}

void to_json(Json& json, const ProjectSkill& skill) {
  json = Json{{"id", skill.id()},           {"name", skill.name},
              {"path", skill.path},         {"relativePath", skill.relativePath},
              {"agent", skill.agent},       {"agentDisplayName", skill.agentDisplayName},
              {"enabled", skill.enabled},   {"isSymlink", skill.isSymlink},
              {"inCenter", skill.inCenter}, {"syncStatus", rawValue(skill.syncStatus)}};
  putOptional(json, "description", skill.description);
  putOptional(json, "centerSkillId", skill.centerSkillId);
  putOptional(json, "lastModifiedAt", skill.lastModifiedAt);
  putOptional(json, "contentHash", skill.contentHash);
}

void to_json(Json& json, const ScannedProject& project) {
  json = Json{{"path", project.path},
              {"name", project.name},
              {"agents", project.agents},
              {"skillCount", project.skillCount},
              {"alreadyAdded", project.alreadyAdded}};
}

void to_json(Json& json, const GitPreviewSkill& skill) {
  json = Json{{"relativePath", skill.relativePath}, {"name", skill.name}, {"alreadyInstalled", skill.alreadyInstalled}};
  putOptional(json, "description", skill.description);
}

void to_json(Json& json, const GitPreview& preview) {
  json = Json{{"originalURL", preview.originalURL},
              {"cloneURL", preview.cloneURL},
              {"revision", preview.revision},
              {"skills", preview.skills}};
  putOptional(json, "branch", preview.branch);
}

void to_json(Json& json, const PlazzaSkill& skill) {
  json = Json{{"id", skill.id},
              {"skillId", skill.skillId},
              {"name", skill.name},
              {"source", skill.source},
              {"installs", skill.installs}};
}

void from_json(const Json& json, PlazzaSkill& skill) {
  json.at("id").get_to(skill.id);
  json.at("skillId").get_to(skill.skillId);
  json.at("name").get_to(skill.name);
  json.at("source").get_to(skill.source);
  skill.installs = wholeNumber(json.at("installs")).value_or(0);
}

void to_json(Json& json, const BackupCommit& commit) {
  json = Json{{"sha", commit.sha}, {"date", iso8601(commit.date)}, {"message", commit.message}};
}

void to_json(Json& json, const BackupStatus& status) {
  json = Json{{"isRepository", status.isRepository},
              {"dirtyFiles", status.dirtyFiles},
              {"ahead", status.ahead},
              {"behind", status.behind},
              {"gitAvailable", status.gitAvailable},
              {"pendingConflicts", status.pendingConflicts}};
  putOptional(json, "remoteURL", status.remoteURL);
  putOptional(json, "branch", status.branch);
  putOptional(json, "lastCommit", status.lastCommit);
}

void to_json(Json& json, const AuditEntry& entry) {
  json = Json{{"id", entry.id}, {"timestamp", entry.timestamp}, {"action", entry.action}, {"success", entry.success}};
  putOptional(json, "skillId", entry.skillId);
  putOptional(json, "skillName", entry.skillName);
  putOptional(json, "tool", entry.tool);
  putOptional(json, "detail", entry.detail);
}

void to_json(Json& json, const DashboardStats& stats) {
  json = Json{{"totalSkills", stats.totalSkills},
              {"enabledSkills", stats.enabledSkills},
              {"installedAgents", stats.installedAgents},
              {"activeAgents", stats.activeAgents},
              {"presets", stats.presets},
              {"projects", stats.projects},
              {"updatesAvailable", stats.updatesAvailable},
              {"brokenTargets", stats.brokenTargets},
              {"tags", stats.tags},
              {"librarySizeBytes", stats.librarySizeBytes}};
}

void to_json(Json& json, const SkillFileEntry& entry) {
  json = Json{{"relativePath", entry.relativePath}, {"size", entry.size}, {"isExecutable", entry.isExecutable}};
}

void to_json(Json& json, const CustomToolDefinition& tool) {
  json = Json{{"key", tool.key},
              {"display_name", tool.displayName},
              {"skills_dir", tool.skillsDir},
              {"category", rawValue(tool.category)}};
  putOptional(json, "project_relative_skills_dir", tool.projectRelativeSkillsDir);
}

void from_json(const Json& json, CustomToolDefinition& tool) {
  tool.key = json.at("key").get<std::string>();
  tool.displayName = json.at("display_name").get<std::string>();
  tool.skillsDir = json.at("skills_dir").get<std::string>();
  tool.projectRelativeSkillsDir = optionalText(json, "project_relative_skills_dir");
  const auto category = optionalText(json, "category");
  tool.category = category ? parseToolCategory(*category).value_or(ToolCategory::coding) : ToolCategory::coding;
}

}  // namespace orvanta
