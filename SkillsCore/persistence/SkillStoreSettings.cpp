// Settings, audit log and directory cache of the store.

#include "foundations/Clock.h"
#include "persistence/SkillStore.h"

namespace orvanta {

std::optional<std::string> SkillStore::setting(const std::string& key) {
  return connection_.scalarString("SELECT value FROM settings WHERE key = ?", {key});
}

void SkillStore::setSetting(const std::string& key, const std::optional<std::string>& value) {
  if (value) {
    connection_.run("INSERT OR REPLACE INTO settings (key, value) VALUES (?, ?)", {key, *value});
  } else {
    connection_.run("DELETE FROM settings WHERE key = ?", {key});
  }
}

std::map<std::string, std::string> SkillStore::settings() {
  std::map<std::string, std::string> all;
  connection_.forEach("SELECT key, value FROM settings", {},
                      [&](const SQLRow& row) { all.emplace(row.text(0), row.text(1)); });
  return all;
}

SyncMode SkillStore::syncMode() { return setting("sync_mode") == "copy" ? SyncMode::copy : SyncMode::symlink; }

ToolOverrides SkillStore::toolOverrides() {
  using TextMap = std::map<std::string, std::string>;
  using TextList = std::vector<std::string>;
  ToolOverrides overrides;
  overrides.pathOverrides = jsonSetting<TextMap>("custom_tool_paths").value_or(TextMap{});
  overrides.projectPathOverrides = jsonSetting<TextMap>("custom_tool_project_paths").value_or(TextMap{});
  overrides.customTools =
      jsonSetting<std::vector<CustomToolDefinition>>("custom_tools").value_or(std::vector<CustomToolDefinition>{});
  overrides.disabled = jsonSetting<std::set<std::string>>("disabled_tools").value_or(std::set<std::string>{});
  overrides.order = jsonSetting<TextList>("agent_order").value_or(TextList{});
  return overrides;
}

SkillsError SkillStore::unreadableSetting(const std::string& key, const std::string& reason) {
  return SkillsError::database("The setting '" + key + "' cannot be read (" + reason +
                               "); another program has changed it. Delete its row from the table 'settings' of the "
                               "library's orvanta.db, or restore that file");
}

void SkillStore::logAudit(const AuditRecord& r) noexcept {
  try {
    connection_.run(
        "INSERT INTO audit_log (ts, action, skill_id, skill_name, tool, success, detail) VALUES (?, ?, ?, ?, ?, ?, ?)",
        {nowMillis(), r.action, r.skillId, r.skillName, r.tool, r.success, r.detail});
  } catch (const std::exception&) {
    return;  // best effort
  }
}

std::vector<AuditEntry> SkillStore::auditEntries(std::int64_t limit, std::int64_t offset) {
  return connection_.query(
      "SELECT id, ts, action, skill_id, skill_name, tool, success, detail FROM audit_log ORDER BY ts DESC, id DESC "
      "LIMIT ? OFFSET ?",
      {limit, offset}, [](const SQLRow& row) {
        return AuditEntry{.id = row.int64(0).value_or(0),
                          .timestamp = row.int64(1).value_or(0),
                          .action = std::string(row.text(2)),
                          .skillId = row.string(3),
                          .skillName = row.string(4),
                          .tool = row.string(5),
                          .success = row.boolean(6),
                          .detail = row.string(7)};
      });
}

std::vector<SkillStore::PendingConflict> SkillStore::pendingConflicts() {
  return connection_.query("SELECT skill_id, theirs_commit, theirs_path FROM pending_conflicts ORDER BY theirs_path",
                           {}, [](const SQLRow& row) {
                             return PendingConflict{.skillId = std::string(row.text(0)),
                                                    .theirsCommit = std::string(row.text(1)),
                                                    .theirsPath = std::string(row.text(2))};
                           });
}

void SkillStore::setPendingConflicts(const std::vector<PendingConflict>& conflicts) {
  connection_.transaction([&] {
    connection_.run("DELETE FROM pending_conflicts");
    for (const auto& conflict : conflicts) {
      connection_.run(
          "INSERT INTO pending_conflicts (skill_id, theirs_commit, theirs_path, detected_at) VALUES (?, ?, ?, ?)",
          {conflict.skillId, conflict.theirsCommit, conflict.theirsPath, nowMillis()});
    }
  });
}

void SkillStore::clearAudit() { connection_.run("DELETE FROM audit_log"); }

std::optional<std::string> SkillStore::cached(const std::string& key, double maxAge) {
  struct Row {
    std::string data;
    std::optional<std::int64_t> fetchedAt;
  };
  const auto row =
      connection_.queryOne("SELECT data, fetched_at FROM plazza_cache WHERE cache_key = ?", {key}, [](const SQLRow& r) {
        return Row{std::string(r.text(0)), r.int64(1)};
      });
  if (!row || !row->fetchedAt) return std::nullopt;
  const double ageSeconds = static_cast<double>(nowMillis() - *row->fetchedAt) / 1000.0;
  if (ageSeconds < 0 || ageSeconds > maxAge) return std::nullopt;
  return row->data;
}

void SkillStore::cache(const std::string& key, const std::string& data) {
  const auto now = nowMillis();
  const auto oldest = now - static_cast<std::int64_t>(longestCacheAge * 1000);
  connection_.transaction([&] {
    connection_.run("DELETE FROM plazza_cache WHERE fetched_at IS NULL OR fetched_at NOT BETWEEN ? AND ?",
                    {oldest, now});
    connection_.run("INSERT OR REPLACE INTO plazza_cache (cache_key, data, fetched_at) VALUES (?, ?, ?)",
                    {key, data, now});
  });
}

void SkillStore::clearCache() { connection_.run("DELETE FROM plazza_cache"); }

}  // namespace orvanta
