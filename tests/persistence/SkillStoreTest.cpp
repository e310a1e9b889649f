#include "persistence/SkillStore.h"

#include <thread>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Texts = std::vector<std::string>;

SkillRecord record(const std::string& id, const std::string& name) {
  SkillRecord skill;
  skill.id = id;
  skill.name = name;
  skill.centralPath = "/library/skills/" + id;
  return skill;
}

SkillTarget target(const std::string& skillId, const std::string& tool) {
  SkillTarget deployment;
  deployment.id = skillId + "@" + tool;
  deployment.skillId = skillId;
  deployment.tool = tool;
  deployment.targetPath = "/home/" + tool + "/" + skillId;
  return deployment;
}

class SkillStoreTest : public Sandbox {
 protected:
  SkillStoreTest() {
    store.insertSkill(record("1", "beta"));
    store.insertSkill(record("2", "Alpha"));
  }

  SkillStore store{paths.database()};
};

using MigrationTest = Sandbox;

TEST_F(SkillStoreTest, EveryFieldOfARecordSurvivesTheDatabase) {
  SkillRecord skill{.id = "full",
                    .name = "Näme",
                    .description = "d",
                    .sourceType = SourceType::imported,
                    .sourceRef = "ref",
                    .sourceRefResolved = "resolved",
                    .sourceSubpath = "sub",
                    .sourceBranch = "branch",
                    .sourceRevision = "rev",
                    .remoteRevision = "remote",
                    .centralPath = "/c",
                    .contentHash = "hash",
                    .enabled = false,
                    .createdAt = 1,
                    .updatedAt = 2,
                    .status = "odd",
                    .updateStatus = UpdateStatus::sourceMissing,
                    .lastCheckedAt = 3,
                    .lastCheckError = "error"};
  store.insertSkill(skill);
  EXPECT_EQ(store.skillFromSource(SourceType::imported, "ref"), skill);
  skill = record("full", "plain");
  skill.createdAt = 1;
  store.updateSkill(skill);
  EXPECT_EQ(store.skillAtPath(skill.centralPath), skill);

  const SkillTarget first{.id = "t",
                          .skillId = "full",
                          .tool = "cursor",
                          .targetPath = "/p",
                          .mode = SyncMode::copy,
                          .status = "error",
                          .syncedAt = 5,
                          .lastError = "e",
                          .sourceHash = "h"};
  for (const auto& deployment : {first, target("full", "cursor")}) {
    store.upsertTarget(deployment);
    auto expected = deployment;
    expected.id = first.id;  // the row keeps it
    EXPECT_EQ(store.targets("full"), std::vector{expected});
  }
}

TEST_F(SkillStoreTest, UnknownValuesOfANewerVersionReadAsTheHarmlessOnes) {
  sql("UPDATE skills SET source_type = 'foo', update_status = 'bar', enabled = 2 WHERE id = '1';"
      "INSERT INTO skill_targets (id, skill_id, tool, target_path, mode) VALUES ('t', '1', 'cursor', '/p', "
      "'hardlink')");
  const auto skill = store.skill("1");
  EXPECT_EQ(skill->sourceType, SourceType::local);
  EXPECT_EQ(skill->updateStatus, UpdateStatus::unknown);
  EXPECT_TRUE(skill->enabled);
  EXPECT_EQ(store.target("1", "cursor")->mode, SyncMode::symlink);
  EXPECT_EQ(store.allSkills().front().name, "Alpha") << "names are ordered without regard to case";
}

TEST_F(SkillStoreTest, NothingThatNamesADeletedSkillOrPresetStaysButTheLog) {
  const Preset preset = store.createPreset("p", {}, {});
  store.setPresetSkills(preset.id, {"1", "2"});
  store.setPresetSkillTool(preset.id, "1", "cursor", false);
  store.upsertTarget(target("1", "cursor"));
  store.setTags("1", {"tag"});
  store.logAudit({.action = "deploy", .skillId = "1"});
  sql("INSERT INTO discovered_skills (id, tool, found_path, found_at, imported_skill_id) VALUES ('d', 't', '/', 1, "
      "'1');"
      "INSERT INTO active_scenario VALUES ('current', '" +
      preset.id + "')");
  store.deleteSkill("1");
  EXPECT_TRUE(store.allTargets().empty() && store.allTags().empty());
  EXPECT_EQ(store.preset(preset.id)->skillIds, Texts{"2"});
  EXPECT_TRUE(store.preset(preset.id)->toolToggles.empty());
  EXPECT_EQ(sql("SELECT id, imported_skill_id FROM discovered_skills"), "d|NULL\n");
  EXPECT_EQ(store.auditEntries(9, 0).size(), 1U);
  store.deletePreset(preset.id);
  EXPECT_EQ(sql("SELECT * FROM active_scenario"), "current|NULL\n");
  EXPECT_TRUE(store.presetIdsBySkill().empty());
}

TEST_F(SkillStoreTest, TheLogIsReadNewestFirstAndNeverGetsInTheWay) {
  for (const auto* action : {"a", "b", "c"}) store.logAudit({.action = action, .success = false, .detail = "x"});
  sql("UPDATE audit_log SET ts = 5");
  const auto page = store.auditEntries(2, 1);
  ASSERT_EQ(page.size(), 2U);
  EXPECT_EQ(page[0].action + page[1].action, "ba");
  EXPECT_FALSE(page[0].success);
  sql("DROP TABLE audit_log");
  store.logAudit({.action = "nobody hears"});
}

TEST_F(SkillStoreTest, CachedAnswersGetOld) {
  store.cache("key", "answer");
  sql("UPDATE plazza_cache SET fetched_at = fetched_at - 60000");
  EXPECT_EQ(store.cached("key", 3600), "answer");
  EXPECT_EQ(store.cached("key", 59), std::nullopt);
  sql("INSERT INTO plazza_cache VALUES ('old', 'x', 1), ('undated', 'x', NULL), ('future', 'x', 9e15)");
  EXPECT_EQ(store.cached("future", 3600), std::nullopt) << "the clock was set back";
  store.cache("another", "answer");
  EXPECT_EQ(sql("SELECT cache_key FROM plazza_cache ORDER BY 1"), "another\nkey\n");
}

TEST_F(SkillStoreTest, ASettingThatCannotBeReadIsNamed) {
  store.setSetting("sync_mode", "copy");
  EXPECT_EQ(store.syncMode(), SyncMode::copy);
  store.setSetting("sync_mode", std::nullopt);
  EXPECT_EQ(store.syncMode(), SyncMode::symlink);
  EXPECT_EQ(store.toolOverrides(), ToolOverrides{});
  for (const auto* key :
       {"custom_tool_paths", "custom_tool_project_paths", "custom_tools", "disabled_tools", "agent_order"}) {
    for (const auto* broken : {"{", "7", R"([{"key":7}])"}) {
      store.setSetting(key, broken);
      EXPECT_THAT(errorOf([&] { store.toolOverrides(); }), IsError(Kind::database, key)) << broken;
    }
    store.setSetting(key, std::nullopt);
  }
  store.setSetting("x", std::string(100'000, '[') + std::string(100'000, ']'));
  EXPECT_THAT(errorOf([&] { store.jsonSetting<Json>("x"); }), IsError(Kind::database, "'x'"));
}

TEST_F(MigrationTest, AnOldDatabaseIsBroughtUpToDateWithItsRecords) {
  fs::create_directories(paths.base());
  sql(R"(CREATE TABLE skills (id TEXT PRIMARY KEY, name TEXT NOT NULL, description TEXT, source_type TEXT NOT NULL,
           source_ref TEXT, source_revision TEXT, central_path TEXT NOT NULL UNIQUE, content_hash TEXT,
           enabled INTEGER DEFAULT 1, created_at INTEGER, updated_at INTEGER, status TEXT DEFAULT 'ok');
         INSERT INTO skills (id, name, source_type, central_path) VALUES ('1', 'old', 'import', '/c'))");
  EXPECT_EQ(SkillStore(paths.database()).skill("1")->sourceType, SourceType::imported);

  sql(R"(DROP TABLE audit_log; DROP TABLE pending_conflicts; DROP TABLE projects;
         CREATE TABLE projects (id TEXT PRIMARY KEY, name TEXT NOT NULL, path TEXT NOT NULL UNIQUE,
           sort_order INTEGER DEFAULT 0, created_at INTEGER, updated_at INTEGER);
         INSERT INTO projects VALUES ('p', 'project', '/p', 0, 1, 2);
         INSERT INTO skill_targets (id, skill_id, tool, target_path, mode) VALUES ('t', '1', 'cursor', '/x', 'copy');
         INSERT INTO settings VALUES ('project_default_export_agents', '[]'), ('sync_mode', 'copy');
         PRAGMA user_version = 3)");
  SkillStore store(paths.database());
  EXPECT_EQ(store.connection().userVersion(), 8);
  EXPECT_EQ(store.project("p")->workspaceType, WorkspaceType::project);
  EXPECT_EQ(store.target("1", "cursor")->mode, SyncMode::copy);
  EXPECT_EQ(store.settings(), (std::map<std::string, std::string>{{"sync_mode", "copy"}}));
  EXPECT_EQ(sql("SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite_%' ORDER BY type, name"),
            "idx_audit_log_ts\nidx_skill_tags_tag\nidx_skills_name\nactive_scenario\naudit_log\ndiscovered_skills\n"
            "pending_conflicts\nplazza_cache\nprojects\nscenario_skill_tools\nscenario_skills\nscenarios\nsettings\n"
            "skill_tags\nskill_targets\nskills\n");
}

TEST_F(MigrationTest, AFailedStepIsUndoneAndTriedAgainAtTheNextStart) {
  fs::create_directories(paths.base());
  sql("CREATE TABLE skills (x); CREATE TABLE settings (key)");
  EXPECT_THAT(errorOf([&] { SkillStore(paths.database()); }),
              IsError(Kind::database, "migration from version 0 to 1 failed: "));
  EXPECT_EQ(sql("SELECT name FROM sqlite_master"), "skills\nsettings\n");
  sql("DROP TABLE skills; DROP TABLE settings");
  EXPECT_EQ(SkillStore(paths.database()).connection().userVersion(), 8);
}

TEST_F(MigrationTest, ANewerOrForeignFileIsRefusedAndLeftByteForByte) {
  fs::create_directories(paths.base());
  const std::string newer =
      "Database schema version (9) is newer than this app supports (8). Please upgrade the application.";
  for (const auto* journal : {"WAL", "DELETE"}) {
    fs::remove(paths.database());
    sql(std::string("PRAGMA journal_mode = ") + journal + "; CREATE TABLE future (x); PRAGMA user_version = 9");
    const std::string before = folderAsText(paths.base());
    EXPECT_EQ(errorOf([&] { SkillStore(paths.database()); }), SkillsError::database(newer));
    EXPECT_TRUE(folderAsText(paths.base()) == before) << "the file was changed in journal mode " << journal;
  }
  fs::remove(paths.database());
  { const SkillStore store(paths.database()); }
  std::string damaged = read(paths.database());
  damaged.replace(100, damaged.size() - 100, damaged.size() - 100, 'x');
  damaged[63] = 7;  // the schema version
  for (const auto& content : {damaged, std::string("This is no database.")}) {
    write(paths.database(), content);
    EXPECT_THAT(errorOf([&] { SkillStore(paths.database()); }), IsError(Kind::database, "database"));
    EXPECT_TRUE(read(paths.database()) == content);
  }
}

TEST_F(MigrationTest, TwoProcessesMayMakeTheSameLibraryAtOnce) {
  fs::create_directories(paths.base());
  std::vector<std::jthread> openers;
  for (int i = 0; i < 4; ++i) {
    openers.emplace_back(
        [&] { EXPECT_NO_THROW(EXPECT_EQ(SkillStore(paths.database()).connection().userVersion(), 8)); });
  }
}

}  // namespace
}  // namespace orvanta
