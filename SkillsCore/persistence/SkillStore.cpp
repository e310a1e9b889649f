#include "persistence/SkillStore.h"

#include <set>

#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/Clock.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

const std::string kSkillColumns =
    "id, name, description, source_type, source_ref, source_ref_resolved, source_subpath, source_branch, "
    "source_revision,\nremote_revision, central_path, content_hash, enabled, created_at, updated_at, status, "
    "update_status, last_checked_at, last_check_error";
const std::string kSelectSkills = "SELECT " + kSkillColumns + " FROM skills";

const std::string kTargetColumns = "id, skill_id, tool, target_path, mode, status, synced_at, last_error, source_hash";
// Restricts to the skills whose ids the parameter lists as a JSON array.
const std::string kAmongSkills = " WHERE skill_id IN (SELECT value FROM json_each(?))";

const std::string kSelectTargets = "SELECT " + kTargetColumns + " FROM skill_targets";

SkillRecord readSkill(const SQLRow& row) {
  return {.id = std::string(row.text(0)),
          .name = std::string(row.text(1)),
          .description = row.string(2),
          .sourceType = parseSourceType(row.text(3)).value_or(SourceType::local),
          .sourceRef = row.string(4),
          .sourceRefResolved = row.string(5),
          .sourceSubpath = row.string(6),
          .sourceBranch = row.string(7),
          .sourceRevision = row.string(8),
          .remoteRevision = row.string(9),
          .centralPath = std::string(row.text(10)),
          .contentHash = row.string(11),
          .enabled = row.boolean(12),
          .createdAt = row.int64(13).value_or(0),
          .updatedAt = row.int64(14).value_or(0),
          .status = std::string(row.text(15)),
          .updateStatus = parseUpdateStatus(row.text(16)).value_or(UpdateStatus::unknown),
          .lastCheckedAt = row.int64(17),
          .lastCheckError = row.string(18)};
}

SkillTarget readTarget(const SQLRow& row) {
  return {.id = std::string(row.text(0)),
          .skillId = std::string(row.text(1)),
          .tool = std::string(row.text(2)),
          .targetPath = std::string(row.text(3)),
          .mode = parseSyncMode(row.text(4)).value_or(SyncMode::symlink),
          .status = std::string(row.text(5)),
          .syncedAt = row.int64(6),
          .lastError = row.string(7),
          .sourceHash = row.string(8)};
}

std::map<std::string, std::vector<std::string>> grouped(SQLiteConnection& connection, const std::string& sql,
                                                        const SQLiteConnection::Params& params = {}) {
  std::map<std::string, std::vector<std::string>> groups;
  auto last = groups.end();  // rows of one group mostly follow one another
  connection.forEach(sql, params, [&](const SQLRow& row) {
    if (last == groups.end() || last->first != row.text(0)) last = groups.try_emplace(std::string(row.text(0))).first;
    last->second.emplace_back(row.text(1));
  });
  return groups;
}

// SQLite would wait forever on a fifo in the place of one of its files.
void refuseSpecialFiles(const std::filesystem::path& database) {
  for (const auto* suffix : {"", "-journal", "-wal", "-shm"}) {
    const std::filesystem::path file = database.string() + suffix;
    if (!FS::exists(file) || FS::resolvesToFile(file)) continue;
    throw SkillsError::io("Cannot open the database: " + file.string() + " is not a regular file; move it away");
  }
}

std::string readyToOpen(const std::filesystem::path& database) {
  FS::createDirectories(database.parent_path());
  refuseSpecialFiles(database);
  Schema::refuseNewer(database);
  return fsPath(database);
}

}  // namespace

SkillStore::SkillStore(const std::filesystem::path& database) : connection_(readyToOpen(database)) {
  Schema::migrate(connection_);
}

SkillStore::SkillStore(InMemory) : connection_(":memory:") { Schema::migrate(connection_); }

SkillStore SkillStore::inMemory() { return SkillStore(InMemory{}); }

std::vector<SkillRecord> SkillStore::allSkills() {
  return connection_.query(kSelectSkills + " ORDER BY name COLLATE NOCASE", {}, readSkill);
}

std::optional<SkillRecord> SkillStore::skill(const std::string& id) {
  return connection_.queryOne(kSelectSkills + " WHERE id = ?", {id}, readSkill);
}

std::optional<SkillRecord> SkillStore::skillAtPath(const std::string& centralPath) {
  return connection_.queryOne(kSelectSkills + " WHERE central_path = ?", {centralPath}, readSkill);
}

std::optional<SkillRecord> SkillStore::skillFromSource(SourceType sourceType, const std::string& sourceRef) {
  return connection_.queryOne(kSelectSkills + " WHERE source_type = ? AND source_ref = ?",
                              {rawValue(sourceType), sourceRef}, readSkill);
}

void SkillStore::insertSkill(const SkillRecord& r) {
  static const std::string sql =
      "INSERT INTO skills (" + kSkillColumns + ")\nVALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
  connection_.run(
      sql, {r.id, r.name, r.description, rawValue(r.sourceType), r.sourceRef, r.sourceRefResolved, r.sourceSubpath,
            r.sourceBranch, r.sourceRevision, r.remoteRevision, r.centralPath, r.contentHash, r.enabled, r.createdAt,
            r.updatedAt, r.status, rawValue(r.updateStatus), r.lastCheckedAt, r.lastCheckError});
}

void SkillStore::updateSkill(const SkillRecord& r) {
  connection_.run(
      "UPDATE skills SET name = ?, description = ?, source_type = ?, source_ref = ?, source_ref_resolved = ?, "
      "source_subpath = ?,\n    source_branch = ?, source_revision = ?, remote_revision = ?, central_path = ?, "
      "content_hash = ?, enabled = ?, updated_at = ?,\n    status = ?, update_status = ?, last_checked_at = ?, "
      "last_check_error = ?\nWHERE id = ?",
      {r.name, r.description, rawValue(r.sourceType), r.sourceRef, r.sourceRefResolved, r.sourceSubpath, r.sourceBranch,
       r.sourceRevision, r.remoteRevision, r.centralPath, r.contentHash, r.enabled, r.updatedAt, r.status,
       rawValue(r.updateStatus), r.lastCheckedAt, r.lastCheckError, r.id});
}

void SkillStore::moveSkills(const std::string& fromFolder, const std::string& toFolder) {
  const std::string from = fromFolder + '/';
  const std::string to = toFolder + '/';
  connection_.run(
      "UPDATE OR IGNORE skills SET central_path = ? || substr(central_path, length(?) + 1)\n"
      "WHERE substr(central_path, 1, length(?)) = ?",
      {to, from, from, from});
}

void SkillStore::deleteSkill(const std::string& id) { connection_.run("DELETE FROM skills WHERE id = ?", {id}); }

void SkillStore::setSkillEnabled(const std::string& id, bool enabled) {
  connection_.run("UPDATE skills SET enabled = ?, updated_at = ? WHERE id = ?", {enabled, nowMillis(), id});
}

std::set<std::string> SkillStore::skillIds() {
  std::set<std::string> ids;
  connection_.forEach("SELECT id FROM skills", {}, [&](const SQLRow& row) { ids.emplace(row.text(0)); });
  return ids;
}

std::vector<std::string> SkillStore::enabledSkillIds() {
  return connection_.query("SELECT id FROM skills WHERE enabled <> 0", {},
                           [](const SQLRow& row) { return std::string(row.text(0)); });
}

void SkillStore::setUpdateStatus(const std::string& id, const UpdateCheck& check) {
  std::string sql = "UPDATE skills SET update_status = ?";
  SQLiteConnection::Params params{rawValue(check.status)};
  if (check.checkedAt) {
    sql += ", last_checked_at = ?";
    params.emplace_back(*check.checkedAt);
  }
  if (check.error) {
    sql += ", last_check_error = ?";
    params.emplace_back(*check.error);
  }
  if (check.remoteRevision) {
    sql += ", remote_revision = ?";
    params.emplace_back(*check.remoteRevision);
  }
  params.emplace_back(id);
  connection_.run(sql + " WHERE id = ?", params);
}

void SkillStore::resetUnfinishedUpdates() {
  connection_.run(
      "UPDATE skills SET update_status = ? WHERE update_status IN (?, ?)",
      {rawValue(UpdateStatus::unknown), rawValue(UpdateStatus::checking), rawValue(UpdateStatus::updating)});
}

std::vector<SkillTarget> SkillStore::allTargets() { return connection_.query(kSelectTargets, {}, readTarget); }

void SkillStore::forEachTarget(const std::vector<std::string>& skillIds,
                               const std::function<void(SkillTarget&&)>& each) {
  connection_.forEach(kSelectTargets + kAmongSkills, {jsonText(skillIds)},
                      [&](const SQLRow& row) { each(readTarget(row)); });
}

std::vector<SkillTarget> SkillStore::targets(const std::string& skillId) {
  return connection_.query(kSelectTargets + " WHERE skill_id = ?", {skillId}, readTarget);
}

std::vector<SkillTarget> SkillStore::targetsOfTool(const std::string& tool) {
  return connection_.query(kSelectTargets + " WHERE tool = ?", {tool}, readTarget);
}

std::optional<SkillTarget> SkillStore::target(const std::string& skillId, const std::string& tool) {
  return connection_.queryOne(kSelectTargets + " WHERE skill_id = ? AND tool = ?", {skillId, tool}, readTarget);
}

void SkillStore::upsertTarget(const SkillTarget& t) {
  static const std::string sql =
      "INSERT INTO skill_targets (" + kTargetColumns +
      ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)\n"
      "ON CONFLICT(skill_id, tool) DO UPDATE SET target_path = excluded.target_path, mode = excluded.mode, "
      "status = excluded.status,\n    synced_at = excluded.synced_at, last_error = excluded.last_error, "
      "source_hash = excluded.source_hash";
  connection_.run(
      sql, {t.id, t.skillId, t.tool, t.targetPath, rawValue(t.mode), t.status, t.syncedAt, t.lastError, t.sourceHash});
}

void SkillStore::deleteTarget(const std::string& skillId, const std::string& tool) {
  connection_.run("DELETE FROM skill_targets WHERE skill_id = ? AND tool = ?", {skillId, tool});
}

void SkillStore::deleteTargets(const std::string& skillId) {
  connection_.run("DELETE FROM skill_targets WHERE skill_id = ?", {skillId});
}

std::map<std::string, std::int64_t> SkillStore::targetCounts() {
  std::map<std::string, std::int64_t> counts;
  connection_.forEach("SELECT tool, COUNT(*) FROM skill_targets GROUP BY tool", {},
                      [&](const SQLRow& row) { counts[std::string(row.text(0))] = row.int64(1).value_or(0); });
  return counts;
}

std::map<std::string, std::vector<std::string>> SkillStore::deployedToolsBySkill() {
  return grouped(connection_, "SELECT skill_id, tool FROM skill_targets WHERE status = 'ok'");
}

void SkillStore::forEachDeployedPair(const std::function<void(std::string_view, std::string_view)>& each) {
  connection_.forEach("SELECT skill_id, tool FROM skill_targets WHERE status = 'ok'", {},
                      [&](const SQLRow& row) { each(row.text(0), row.text(1)); });
}

std::vector<std::string> SkillStore::tags(const std::string& skillId) {
  return connection_.query("SELECT tag FROM skill_tags WHERE skill_id = ? ORDER BY tag COLLATE NOCASE", {skillId},
                           [](const SQLRow& row) { return std::string(row.text(0)); });
}

std::vector<TagCount> SkillStore::allTags() {
  return connection_.query("SELECT tag, COUNT(*) FROM skill_tags GROUP BY tag ORDER BY tag COLLATE NOCASE", {},
                           [](const SQLRow& row) {
                             return TagCount{std::string(row.text(0)), row.int64(1).value_or(0)};
                           });
}

std::map<std::string, std::vector<std::string>> SkillStore::tagsBySkill() {
  return grouped(connection_, "SELECT skill_id, tag FROM skill_tags ORDER BY tag COLLATE NOCASE");
}

std::map<std::string, std::vector<std::string>> SkillStore::tagsBySkill(const std::vector<std::string>& skillIds) {
  return grouped(connection_, "SELECT skill_id, tag FROM skill_tags" + kAmongSkills + " ORDER BY tag COLLATE NOCASE",
                 {jsonText(skillIds)});
}

void SkillStore::setTags(const std::string& skillId, const std::vector<std::string>& tags) {
  connection_.transaction([&] {
    connection_.run("DELETE FROM skill_tags WHERE skill_id = ?", {skillId});
    std::set<std::string> inserted;
    for (const auto& given : tags) {
      const std::string tag = Text::lowercase(Text::trim(given));
      if (tag.empty() || !inserted.insert(tag).second) continue;
      connection_.run("INSERT INTO skill_tags (skill_id, tag) VALUES (?, ?)", {skillId, tag});
    }
  });
}

void SkillStore::renameTag(const std::string& from, const std::string& to) {
  connection_.transaction([&] {
    connection_.run("UPDATE OR IGNORE skill_tags SET tag = ? WHERE tag = ?", {to, from});
    connection_.run("DELETE FROM skill_tags WHERE tag = ?", {from});
  });
}

void SkillStore::deleteTag(const std::string& tag) { connection_.run("DELETE FROM skill_tags WHERE tag = ?", {tag}); }

}  // namespace orvanta
