#pragma once

// Runs the SQL of the library database and maps its rows to records. Holds no state beyond the connection, makes no
// decisions about files, and has no lock of its own: the engine uses it from one operation at a time. Every operation
// throws `SkillsError` of kind `database` unless it says otherwise; those over several rows change all or none.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/ForeignJSON.h"
#include "foundations/Models.h"
#include "foundations/ModelsJSON.h"
#include "foundations/SkillsError.h"
#include "persistence/SQLite.h"
#include "persistence/Schema.h"

namespace orvanta {

class SkillStore {
 public:
  static constexpr int latestSchemaVersion = Schema::kLatestVersion;

  // Opens the database and brings it to the latest version; makes its folder where missing.
  explicit SkillStore(const std::filesystem::path& database);
  static SkillStore inMemory();

  SQLiteConnection& connection() { return connection_; }

  // ── Settings ──
  std::optional<std::string> setting(const std::string& key);
  // No value deletes the key.
  void setSetting(const std::string& key, const std::optional<std::string>& value);
  std::map<std::string, std::string> settings();
  // A setting that holds JSON; one that does not decode into T is a `database` error that names the key.
  template <typename T>
  std::optional<T> jsonSetting(const std::string& key) {
    const auto text = setting(key);
    if (!text) return std::nullopt;
    const Json json = parseForeignJSON(*text);
    if (json.is_discarded()) throw unreadableSetting(key, "it is no JSON");
    try {
      return json.get<T>();
    } catch (const Json::exception& error) {
      throw unreadableSetting(key, error.what());
    }
  }
  template <typename T>
  void setJSONSetting(const std::string& key, const std::optional<T>& value) {
    setSetting(key, value ? std::optional(jsonText(Json(*value))) : std::nullopt);
  }
  SyncMode syncMode();
  ToolOverrides toolOverrides();

  // ── Skills ──
  // By name, letter case ignored.
  std::vector<SkillRecord> allSkills();
  std::optional<SkillRecord> skill(const std::string& id);
  std::optional<SkillRecord> skillAtPath(const std::string& centralPath);
  std::optional<SkillRecord> skillFromSource(SourceType sourceType, const std::string& sourceRef);
  void insertSkill(const SkillRecord& record);
  // All fields but `createdAt`, by id.
  void updateSkill(const SkillRecord& record);
  // The skills that lie in one folder lie in another from now on, each under the name it has. A place that another
  // record has stays with that.
  void moveSkills(const std::string& fromFolder, const std::string& toFolder);
  void deleteSkill(const std::string& id);
  void setSkillEnabled(const std::string& id, bool enabled);
  std::set<std::string> skillIds();
  std::vector<std::string> enabledSkillIds();

  // What a check for updates writes; absent outer values leave the stored ones, an inner absent error clears it.
  struct UpdateCheck {
    UpdateStatus status = UpdateStatus::unknown;
    std::optional<std::optional<std::string>> remoteRevision;
    std::optional<std::optional<std::string>> error;
    std::optional<std::int64_t> checkedAt;
  };
  void setUpdateStatus(const std::string& id, const UpdateCheck& check);
  // Skills that are marked as being checked or updated become unknown.
  void resetUnfinishedUpdates();

  // ── Deployments ──
  std::vector<SkillTarget> allTargets();
  // The deployments of these skills, by one query whatever their number.
  void forEachTarget(const std::vector<std::string>& skillIds, const std::function<void(SkillTarget&&)>& each);
  std::vector<SkillTarget> targets(const std::string& skillId);
  std::vector<SkillTarget> targetsOfTool(const std::string& tool);
  std::optional<SkillTarget> target(const std::string& skillId, const std::string& tool);
  // By skill and agent; an existing row keeps its id.
  void upsertTarget(const SkillTarget& target);
  void deleteTarget(const std::string& skillId, const std::string& tool);
  void deleteTargets(const std::string& skillId);
  // Agent key → number of deployments.
  std::map<std::string, std::int64_t> targetCounts();
  // Skill id → agents that hold it (status "ok").
  std::map<std::string, std::vector<std::string>> deployedToolsBySkill();
  // The same pairs one by one, in no order; the texts are valid during the call.
  void forEachDeployedPair(const std::function<void(std::string_view skillId, std::string_view tool)>& each);

  // ── Tags ──
  std::vector<std::string> tags(const std::string& skillId);
  std::vector<TagCount> allTags();
  std::map<std::string, std::vector<std::string>> tagsBySkill();
  std::map<std::string, std::vector<std::string>> tagsBySkill(const std::vector<std::string>& skillIds);
  // Stored trimmed, lower-case and unique; empty ones are passed over.
  void setTags(const std::string& skillId, const std::vector<std::string>& tags);
  // Names as given: the caller normalises.
  void renameTag(const std::string& from, const std::string& to);
  void deleteTag(const std::string& tag);

  // ── Presets ──
  std::vector<Preset> presets();
  std::optional<Preset> preset(const std::string& id);
  Preset createPreset(const std::string& name, const std::optional<std::string>& description,
                      const std::optional<std::string>& icon);
  void updatePreset(const std::string& id, const std::string& name, const std::optional<std::string>& description,
                    const std::optional<std::string>& icon);
  void deletePreset(const std::string& id);
  void reorderPresets(const std::vector<std::string>& ids);
  void setPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds);
  // After the members it has; those keep their places.
  void addPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds);
  // With its toggles.
  void removePresetSkill(const std::string& presetId, const std::string& skillId);
  // A new preset with the members and toggles of another.
  Preset copyPreset(const Preset& source, const std::string& name);
  void setPresetSkillTool(const std::string& presetId, const std::string& skillId, const std::string& tool,
                          bool enabled);
  std::map<std::string, std::vector<std::string>> presetIdsBySkill();
  std::optional<std::string> activePresetId();
  void setActivePresetId(const std::optional<std::string>& id);

  // ── Projects ──
  std::vector<ProjectRecord> projects();
  std::optional<ProjectRecord> project(const std::string& id);
  std::optional<ProjectRecord> projectAtPath(const std::string& path);
  void insertProject(const ProjectRecord& record);
  void deleteProject(const std::string& id);
  std::int64_t nextProjectSortOrder();
  void reorderProjects(const std::vector<std::string>& ids);

  // ── Backup ──
  // A skill that this library and the remote of its backup both changed.
  struct PendingConflict {
    std::string skillId;  // of the folder's name, where no skill is recorded
    std::string theirsCommit;
    std::string theirsPath;  // its folder
  };
  std::vector<PendingConflict> pendingConflicts();
  // These and no others.
  void setPendingConflicts(const std::vector<PendingConflict>& conflicts);

  // ── Audit log ──
  struct AuditRecord {
    std::string action;
    std::optional<std::string> skillId;
    std::optional<std::string> skillName;
    std::optional<std::string> tool;
    bool success = true;
    std::optional<std::string> detail;
  };
  // Never throws: a log that cannot be written must not make the logged operation fail.
  void logAudit(const AuditRecord& record) noexcept;
  // Newest first.
  std::vector<AuditEntry> auditEntries(std::int64_t limit, std::int64_t offset);
  void clearAudit();

  // ── Directory cache ──
  static constexpr double longestCacheAge = 3600;  // seconds
  // Data stored at most `maxAge` seconds ago. What the clock says was stored later than now is of unknown age.
  std::optional<std::string> cached(const std::string& key, double maxAge);
  // Other data that is older than `longestCacheAge`, or of unknown age, goes.
  void cache(const std::string& key, const std::string& data);
  void clearCache();

 private:
  struct InMemory {};
  explicit SkillStore(InMemory);

  static SkillsError unreadableSetting(const std::string& key, const std::string& reason);
  void fillPresets(std::vector<Preset>& presets, const std::string& where, const SQLiteConnection::Params& params);
  void reorder(const std::string& sql, const std::vector<std::string>& ids);

  SQLiteConnection connection_;
};

}  // namespace orvanta
