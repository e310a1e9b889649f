// Presets and projects of the store.

#include "foundations/Clock.h"
#include "foundations/Uuid.h"
#include "persistence/SkillStore.h"

namespace orvanta {

namespace {

const std::string kProjectColumns =
    "id, name, path, workspace_type, linked_agent_key, linked_agent_name, disabled_path, sort_order, created_at, "
    "updated_at";
const std::string kSelectPresets =
    "SELECT id, name, description, icon, sort_order, created_at, updated_at FROM scenarios";
const std::string kSelectProjects = "SELECT " + kProjectColumns + " FROM projects";

Preset readPreset(const SQLRow& row) {
  return {.id = std::string(row.text(0)),
          .name = std::string(row.text(1)),
          .description = row.string(2),
          .icon = row.string(3),
          .sortOrder = row.int64(4).value_or(0),
          .createdAt = row.int64(5).value_or(0),
          .updatedAt = row.int64(6).value_or(0),
          .skillIds = {},
          .toolToggles = {}};
}

ProjectRecord readProject(const SQLRow& row) {
  return {.id = std::string(row.text(0)),
          .name = std::string(row.text(1)),
          .path = std::string(row.text(2)),
          .workspaceType = parseWorkspaceType(row.text(3)).value_or(WorkspaceType::project),
          .linkedAgentKey = row.string(4),
          .linkedAgentName = row.string(5),
          .disabledPath = row.string(6),
          .sortOrder = row.int64(7).value_or(0),
          .createdAt = row.int64(8).value_or(0),
          .updatedAt = row.int64(9).value_or(0)};
}

}  // namespace

std::vector<Preset> SkillStore::presets() {
  auto presets = connection_.query(kSelectPresets + " ORDER BY sort_order, created_at", {}, readPreset);
  fillPresets(presets, "", {});
  return presets;
}

std::optional<Preset> SkillStore::preset(const std::string& id) {
  auto found = connection_.query(kSelectPresets + " WHERE id = ?", {id}, readPreset);
  if (found.empty()) return std::nullopt;
  fillPresets(found, " WHERE scenario_id = ?", {id});
  return std::move(found.front());
}

// Adds members and toggles, by one query each whatever the number of presets.
void SkillStore::fillPresets(std::vector<Preset>& presets, const std::string& where,
                             const SQLiteConnection::Params& params) {
  std::map<std::string, Preset*, std::less<>> byId;
  for (auto& preset : presets) byId[preset.id] = &preset;
  connection_.forEach("SELECT scenario_id, skill_id FROM scenario_skills" + where + " ORDER BY sort_order, added_at",
                      params, [&](const SQLRow& row) {
                        const auto preset = byId.find(row.text(0));
                        if (preset != byId.end()) preset->second->skillIds.emplace_back(row.text(1));
                      });
  connection_.forEach("SELECT scenario_id, skill_id, tool, enabled FROM scenario_skill_tools" + where, params,
                      [&](const SQLRow& row) {
                        const auto preset = byId.find(row.text(0));
                        if (preset == byId.end()) return;
                        auto& toggles = preset->second->toolToggles[std::string(row.text(1))];
                        toggles[std::string(row.text(2))] = row.boolean(3);
                      });
}

Preset SkillStore::createPreset(const std::string& name, const std::optional<std::string>& description,
                                const std::optional<std::string>& icon) {
  const std::int64_t now = nowMillis();
  Preset preset{.id = newUuid(),
                .name = name,
                .description = description,
                .icon = icon,
                .sortOrder = connection_.scalarInt("SELECT COALESCE(MAX(sort_order), -1) + 1 FROM scenarios"),
                .createdAt = now,
                .updatedAt = now,
                .skillIds = {},
                .toolToggles = {}};
  connection_.run(
      "INSERT INTO scenarios (id, name, description, icon, sort_order, created_at, updated_at) VALUES (?, ?, ?, ?, ?, "
      "?, ?)",
      {preset.id, name, description, icon, preset.sortOrder, now, now});
  return preset;
}

void SkillStore::updatePreset(const std::string& id, const std::string& name,
                              const std::optional<std::string>& description, const std::optional<std::string>& icon) {
  connection_.run("UPDATE scenarios SET name = ?, description = ?, icon = ?, updated_at = ? WHERE id = ?",
                  {name, description, icon, nowMillis(), id});
}

void SkillStore::deletePreset(const std::string& id) { connection_.run("DELETE FROM scenarios WHERE id = ?", {id}); }

void SkillStore::reorder(const std::string& sql, const std::vector<std::string>& ids) {
  connection_.transaction([&] {
    std::int64_t position = 0;
    for (const auto& id : ids) connection_.run(sql, {position++, id});
  });
}

void SkillStore::reorderPresets(const std::vector<std::string>& ids) {
  reorder("UPDATE scenarios SET sort_order = ? WHERE id = ?", ids);
}

void SkillStore::setPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds) {
  connection_.transaction([&] {
    const std::int64_t now = nowMillis();
    connection_.run("DELETE FROM scenario_skills WHERE scenario_id = ?", {presetId});
    std::int64_t position = 0;
    for (const auto& skillId : skillIds) {
      connection_.run(
          "INSERT OR IGNORE INTO scenario_skills (scenario_id, skill_id, added_at, sort_order) VALUES (?, ?, ?, ?)",
          {presetId, skillId, now, position++});
    }
    connection_.run("UPDATE scenarios SET updated_at = ? WHERE id = ?", {now, presetId});
  });
}

void SkillStore::addPresetSkills(const std::string& presetId, const std::vector<std::string>& skillIds) {
  connection_.transaction([&] {
    const std::int64_t now = nowMillis();
    std::int64_t position = connection_.scalarInt(
        "SELECT COALESCE(MAX(sort_order), -1) + 1 FROM scenario_skills WHERE scenario_id = ?", {presetId});
    for (const auto& skillId : skillIds) {
      connection_.run(
          "INSERT OR IGNORE INTO scenario_skills (scenario_id, skill_id, added_at, sort_order) VALUES (?, ?, ?, ?)",
          {presetId, skillId, now, position++});
    }
    connection_.run("UPDATE scenarios SET updated_at = ? WHERE id = ?", {now, presetId});
  });
}

void SkillStore::removePresetSkill(const std::string& presetId, const std::string& skillId) {
  connection_.transaction([&] {
    connection_.run("DELETE FROM scenario_skills WHERE scenario_id = ? AND skill_id = ?", {presetId, skillId});
    connection_.run("DELETE FROM scenario_skill_tools WHERE scenario_id = ? AND skill_id = ?", {presetId, skillId});
    connection_.run("UPDATE scenarios SET updated_at = ? WHERE id = ?", {nowMillis(), presetId});
  });
}

Preset SkillStore::copyPreset(const Preset& source, const std::string& name) {
  return connection_.transaction([&] {
    Preset copy = createPreset(name, source.description, source.icon);
    connection_.run(
        "INSERT INTO scenario_skills (scenario_id, skill_id, added_at, sort_order) "
        "SELECT ?, skill_id, added_at, sort_order FROM scenario_skills WHERE scenario_id = ?",
        {copy.id, source.id});
    connection_.run(
        "INSERT INTO scenario_skill_tools (scenario_id, skill_id, tool, enabled, updated_at) "
        "SELECT ?, skill_id, tool, enabled, updated_at FROM scenario_skill_tools WHERE scenario_id = ?",
        {copy.id, source.id});
    return copy;
  });
}

void SkillStore::setPresetSkillTool(const std::string& presetId, const std::string& skillId, const std::string& tool,
                                    bool enabled) {
  connection_.run(
      "INSERT INTO scenario_skill_tools (scenario_id, skill_id, tool, enabled, updated_at) VALUES (?, ?, ?, ?, ?)\n"
      "ON CONFLICT(scenario_id, skill_id, tool) DO UPDATE SET enabled = excluded.enabled, updated_at = "
      "excluded.updated_at",
      {presetId, skillId, tool, enabled, nowMillis()});
}

std::map<std::string, std::vector<std::string>> SkillStore::presetIdsBySkill() {
  std::map<std::string, std::vector<std::string>> presets;
  connection_.forEach(
      "SELECT ss.skill_id, ss.scenario_id FROM scenario_skills ss JOIN scenarios s ON s.id = ss.scenario_id ORDER BY "
      "s.sort_order",
      {}, [&](const SQLRow& row) { presets[std::string(row.text(0))].emplace_back(row.text(1)); });
  return presets;
}

std::optional<std::string> SkillStore::activePresetId() {
  return connection_.scalarString("SELECT scenario_id FROM active_scenario WHERE key = 'current'");
}

void SkillStore::setActivePresetId(const std::optional<std::string>& id) {
  if (id) {
    connection_.run("INSERT OR REPLACE INTO active_scenario (key, scenario_id) VALUES ('current', ?)", {*id});
  } else {
    connection_.run("DELETE FROM active_scenario WHERE key = 'current'");
  }
}

std::vector<ProjectRecord> SkillStore::projects() {
  return connection_.query(kSelectProjects + " ORDER BY sort_order, created_at", {}, readProject);
}

std::optional<ProjectRecord> SkillStore::project(const std::string& id) {
  return connection_.queryOne(kSelectProjects + " WHERE id = ?", {id}, readProject);
}

std::optional<ProjectRecord> SkillStore::projectAtPath(const std::string& path) {
  return connection_.queryOne(kSelectProjects + " WHERE path = ?", {path}, readProject);
}

void SkillStore::insertProject(const ProjectRecord& r) {
  connection_.run("INSERT INTO projects (" + kProjectColumns + ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                  {r.id, r.name, r.path, rawValue(r.workspaceType), r.linkedAgentKey, r.linkedAgentName, r.disabledPath,
                   r.sortOrder, r.createdAt, r.updatedAt});
}

void SkillStore::deleteProject(const std::string& id) { connection_.run("DELETE FROM projects WHERE id = ?", {id}); }

std::int64_t SkillStore::nextProjectSortOrder() {
  return connection_.scalarInt("SELECT COALESCE(MAX(sort_order), -1) + 1 FROM projects");
}

void SkillStore::reorderProjects(const std::vector<std::string>& ids) {
  reorder("UPDATE projects SET sort_order = ? WHERE id = ?", ids);
}

}  // namespace orvanta
