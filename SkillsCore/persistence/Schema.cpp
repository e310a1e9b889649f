#include "persistence/Schema.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "foundations/SkillsError.h"

namespace orvanta::Schema {

namespace {

constexpr const char* kPresetTools = R"sql(
CREATE TABLE IF NOT EXISTS scenario_skill_tools (
    scenario_id TEXT NOT NULL REFERENCES scenarios(id) ON DELETE CASCADE,
    skill_id TEXT NOT NULL REFERENCES skills(id) ON DELETE CASCADE,
    tool TEXT NOT NULL,
    enabled INTEGER NOT NULL DEFAULT 1,
    updated_at INTEGER NOT NULL,
    PRIMARY KEY(scenario_id, skill_id, tool)
);
)sql";

constexpr const char* kProjects = R"sql(
CREATE TABLE IF NOT EXISTS projects (
    id TEXT PRIMARY KEY,
    name TEXT NOT NULL,
    path TEXT NOT NULL UNIQUE,
    workspace_type TEXT NOT NULL DEFAULT 'project',
    linked_agent_key TEXT,
    linked_agent_name TEXT,
    disabled_path TEXT,
    sort_order INTEGER DEFAULT 0,
    created_at INTEGER,
    updated_at INTEGER
);
)sql";

constexpr const char* kSkillsAndTargets = R"sql(
CREATE TABLE IF NOT EXISTS skills (
    id TEXT PRIMARY KEY,
    name TEXT NOT NULL,
    description TEXT,
    source_type TEXT NOT NULL,
    source_ref TEXT,
    source_ref_resolved TEXT,
    source_subpath TEXT,
    source_branch TEXT,
    source_revision TEXT,
    remote_revision TEXT,
    central_path TEXT NOT NULL UNIQUE,
    content_hash TEXT,
    enabled INTEGER DEFAULT 1,
    created_at INTEGER,
    updated_at INTEGER,
    status TEXT DEFAULT 'ok',
    update_status TEXT DEFAULT 'unknown',
    last_checked_at INTEGER,
    last_check_error TEXT
);
CREATE INDEX IF NOT EXISTS idx_skills_name ON skills(name);
CREATE TABLE IF NOT EXISTS skill_targets (
    id TEXT PRIMARY KEY,
    skill_id TEXT NOT NULL REFERENCES skills(id) ON DELETE CASCADE,
    tool TEXT NOT NULL,
    target_path TEXT NOT NULL,
    mode TEXT NOT NULL,
    status TEXT DEFAULT 'ok',
    synced_at INTEGER,
    last_error TEXT,
    source_hash TEXT,
    UNIQUE(skill_id, tool)
);
CREATE TABLE IF NOT EXISTS discovered_skills (
    id TEXT PRIMARY KEY,
    tool TEXT NOT NULL,
    found_path TEXT NOT NULL,
    name_guess TEXT,
    fingerprint TEXT,
    found_at INTEGER NOT NULL,
    imported_skill_id TEXT REFERENCES skills(id) ON DELETE SET NULL
);
CREATE TABLE IF NOT EXISTS settings (
    key TEXT PRIMARY KEY,
    value TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS plazza_cache (
    cache_key TEXT PRIMARY KEY,
    data TEXT NOT NULL,
    fetched_at INTEGER
);
)sql";

constexpr const char* kPresets = R"sql(
CREATE TABLE IF NOT EXISTS scenarios (
    id TEXT PRIMARY KEY,
    name TEXT NOT NULL UNIQUE,
    description TEXT,
    icon TEXT,
    sort_order INTEGER DEFAULT 0,
    created_at INTEGER,
    updated_at INTEGER
);
CREATE TABLE IF NOT EXISTS scenario_skills (
    scenario_id TEXT NOT NULL REFERENCES scenarios(id) ON DELETE CASCADE,
    skill_id TEXT NOT NULL REFERENCES skills(id) ON DELETE CASCADE,
    added_at INTEGER,
    PRIMARY KEY(scenario_id, skill_id)
);
)sql";

constexpr const char* kActivePreset = R"sql(
CREATE TABLE IF NOT EXISTS active_scenario (
    key TEXT PRIMARY KEY DEFAULT 'current',
    scenario_id TEXT REFERENCES scenarios(id) ON DELETE SET NULL
);
)sql";

constexpr const char* kTags = R"sql(
CREATE TABLE IF NOT EXISTS skill_tags (
    skill_id TEXT NOT NULL REFERENCES skills(id) ON DELETE CASCADE,
    tag TEXT NOT NULL,
    PRIMARY KEY(skill_id, tag)
);
CREATE INDEX IF NOT EXISTS idx_skill_tags_tag ON skill_tags(tag);
)sql";

// The log has no foreign key: entries outlive the skills they name.
constexpr const char* kAuditLog = R"sql(
CREATE TABLE IF NOT EXISTS audit_log (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    ts INTEGER NOT NULL,
    action TEXT NOT NULL,
    skill_id TEXT,
    skill_name TEXT,
    tool TEXT,
    success INTEGER NOT NULL,
    detail TEXT
);
CREATE INDEX IF NOT EXISTS idx_audit_log_ts ON audit_log(ts);
)sql";

constexpr const char* kPendingConflicts = R"sql(
CREATE TABLE IF NOT EXISTS pending_conflicts (
    skill_id TEXT PRIMARY KEY,
    theirs_commit TEXT NOT NULL,
    theirs_path TEXT,
    detected_at INTEGER NOT NULL
);
)sql";

// Databases of early builds have the tables but not all columns; the additions bring them to the same shape.
void createBase(SQLiteConnection& connection) {
  for (const auto* sql : {kSkillsAndTargets, kPresets, kPresetTools, kActivePreset, kProjects, kTags}) {
    connection.execute(sql);
  }
  connection.addColumnIfMissing("scenarios", "icon", "TEXT");
  constexpr std::array<std::array<const char*, 2>, 7> kSkillColumns{{{"source_ref_resolved", "TEXT"},
                                                                     {"source_subpath", "TEXT"},
                                                                     {"source_branch", "TEXT"},
                                                                     {"remote_revision", "TEXT"},
                                                                     {"update_status", "TEXT DEFAULT 'unknown'"},
                                                                     {"last_checked_at", "INTEGER"},
                                                                     {"last_check_error", "TEXT"}}};
  for (const auto& [column, definition] : kSkillColumns) {
    connection.addColumnIfMissing("skills", column, definition);
  }
}

void addWorkspaces(SQLiteConnection& connection) {
  connection.execute(kProjects);
  connection.addColumnIfMissing("projects", "workspace_type", "TEXT NOT NULL DEFAULT 'project'");
  for (const auto* column : {"linked_agent_key", "linked_agent_name", "disabled_path"}) {
    connection.addColumnIfMissing("projects", column, "TEXT");
  }
}

void dropRetiredSetting(SQLiteConnection& connection) {
  const bool hasSettings =
      connection.scalarInt("SELECT EXISTS(SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'settings')") ==
      1;
  if (hasSettings) connection.execute("DELETE FROM settings WHERE key = 'project_default_export_agents'");
}

void runStep(SQLiteConnection& connection, int step) {
  switch (step) {
    case 0: return createBase(connection);
    case 1: return connection.execute(kPresetTools);
    case 2: return connection.addColumnIfMissing("scenario_skills", "sort_order", "INTEGER DEFAULT 0");
    case 3: return addWorkspaces(connection);
    case 4: return connection.execute(kAuditLog);
    case 5: return connection.addColumnIfMissing("skill_targets", "source_hash", "TEXT");
    case 6: return connection.execute(kPendingConflicts);
    case 7: return dropRetiredSetting(connection);
    default: throw SkillsError::database("unknown migration version: " + std::to_string(step));
  }
}

void migrateFrom(SQLiteConnection& connection, int step) {
  connection.execute("BEGIN EXCLUSIVE");
  try {
    // Another process may have run this step while this one waited for the database.
    if (connection.userVersion() == step) {
      runStep(connection, step);
      connection.setUserVersion(step + 1);
    }
    connection.execute("COMMIT");
  } catch (const SkillsError& error) {
    try {
      connection.execute("ROLLBACK");
    } catch (const SkillsError&) {
      // The first error is the one to report.
    }
    throw SkillsError::database("migration from version " + std::to_string(step) + " to " + std::to_string(step + 1) +
                                " failed: " + error.message());
  }
}

SkillsError newer(int version) {
  return SkillsError::database("Database schema version (" + std::to_string(version) +
                               ") is newer than this app supports (" + std::to_string(kLatestVersion) +
                               "). Please upgrade the application.");
}

}  // namespace

void refuseNewer(const std::filesystem::path& database) {
  constexpr std::string_view kMagic("SQLite format 3\0", 16);
  constexpr std::size_t kUserVersionAt = 60;  // four bytes, big-endian
  std::array<char, kUserVersionAt + 4> header{};
  std::ifstream file(database, std::ios::binary);
  if (!file.read(header.data(), header.size()) || std::string_view(header.data(), kMagic.size()) != kMagic) return;
  std::uint32_t version = 0;
  for (std::size_t i = kUserVersionAt; i < header.size(); ++i) {
    version = version << 8U | static_cast<unsigned char>(header[i]);
  }
  if (static_cast<std::int32_t>(version) > kLatestVersion) throw newer(static_cast<std::int32_t>(version));
}

void migrate(SQLiteConnection& connection) {
  for (int version = connection.userVersion(); version != kLatestVersion; version = connection.userVersion()) {
    if (version > kLatestVersion) throw newer(version);
    migrateFrom(connection, version);
    // From the log into the file, where whoever only looks at that finds the version.
    if (connection.userVersion() == kLatestVersion) connection.mergeLog();
  }
}

}  // namespace orvanta::Schema
