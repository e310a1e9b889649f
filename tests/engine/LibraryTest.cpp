// The library as a whole: skills in and out, settings, and what happens to it from outside.

#include <sys/stat.h>

#include <set>
#include <thread>

#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "files/LibraryLock.h"
#include "foundations/ModelsJSON.h"
#include "foundations/Uuid.h"
#include "sources/StagingFolder.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Texts = std::vector<std::string>;

class LibraryTest : public Sandbox {
 protected:
  [[nodiscard]] std::set<std::string> folders() const {
    std::set<std::string> names;
    for (const auto& child : FS::children(paths.skills())) names.insert(child.filename().string());
    return names;
  }
  Texts actions() {
    Texts names;
    for (const auto& entry : engine().auditEntries(100, 0)) names.push_back(entry.action);
    return names;
  }
};

TEST_F(LibraryTest, TheSameSkillIsHeldOnceAndAnotherOfItsNameBesideIt) {
  const Path source = givenSkill("a", {{"v", "1"}});
  const auto first = engine().installLocal(source, std::nullopt);
  engine().updateSkillInfo(first.record.id, "My name", "mine");
  const std::string touches = touchesAsText(paths.skills() / "a");
  const auto report = reopen().installFolders({source, source}, {});
  EXPECT_EQ(report.reusedIds, (Texts{first.record.id, first.record.id}));
  EXPECT_EQ(touchesAsText(paths.skills() / "a"), touches);
  EXPECT_EQ(engine().summary(first.record.id).record.name, "My name");
  for (const auto* version : {"2", "3"}) {
    write(source / "v", version);
    EXPECT_EQ(engine().installLocal(source, std::nullopt).record.centralPath,
              (paths.skills() / (std::string("a-") + version)).string());
  }
  EXPECT_EQ(engine().installLocal(source, std::nullopt).record.centralPath, (paths.skills() / "a-3").string());
  EXPECT_EQ(folders(), (std::set<std::string>{"a", "a-2", "a-3"}));
}

TEST_F(LibraryTest, NoNameLeadsOutOfTheLibraryOrToAReservedPlace) {
  Texts names{".git",      ".GIT",     "../evil",    "/etc/evil",    ".orvanta", ".installing-x", ".replacing-a-b",
              ".",         "..",       "",           "con",          "NUL.txt",  "a/b",           "a\\b",
              "tab\there", "\xFF\xFE", "trailing. ", "\u202Egpj.exe"};
  for (const std::string beginning : {"", "漢字"}) names.push_back(beginning + std::string(300, 'x'));
  for (std::size_t i = 0; i < names.size(); ++i) {
    const Path source = folder(home / "Downloads" / std::to_string(i),
                               {{"SKILL.md", "---\nname: \"" + names[i] + "\"\n---\n" + names[i]}});
    try {
      engine().installLocal(source, std::nullopt);
      engine().installLocal(source, names[i]);
    } catch (const SkillsError& error) {
      EXPECT_THAT(error, IsError(Kind::invalidInput, "Invalid skill name")) << names[i];
    }
  }
  EXPECT_GE(folders().size(), 15U);
  for (const auto& name : folders()) EXPECT_TRUE(SkillMetadata::isSafeFolderName(name) && name.front() != '.') << name;
  EXPECT_EQ(FS::children(root).size(), 3U);
  EXPECT_FALSE(fs::exists(paths.base() / "evil"));
}

TEST_F(LibraryTest, WhatIsNoSkillOutsideTheLibraryIsRefused) {
  engine().installLocal(givenSkill("a"), std::nullopt);
  fs::create_directory_symlink(paths.base(), home / "door");
  const Path empty = folder(home / "empty", {});
  const Path fifo = folder(home / "fifo", {});
  ASSERT_EQ(::mkfifo((fifo / "SKILL.md").c_str(), 0600), 0);
  skillFolder(root);
  const std::string before = libraryAsText();
  const std::vector<std::pair<Path, std::string>> table{
      {home / "absent", "absent is not a directory"},
      {givenSkill("a") / "SKILL.md", "SKILL.md is not a directory"},
      {empty, "empty is not a skill directory (no SKILL.md found)"},
      {fifo, "fifo is not a skill directory (no SKILL.md found)"},
      {paths.skills() / "a", "a is already inside the library"},
      {home / "door" / "skills" / "a", "a is already inside the library"},
      {root, "Source and destination overlap"}};
  for (const auto& [each, message] : table) {
    const auto& source = each;  // what a lambda is to see must be a variable
    EXPECT_THAT(errorOf([&] { engine().installLocal(source, std::nullopt); }), IsError(Kind::invalidInput, message));
    EXPECT_EQ(engine().planInstall({source}, std::nullopt).front().action, PlannedStep::Action::refused) << source;
  }
  EXPECT_EQ(engine().installFolder(empty, 4, {}).errors, Texts{"No SKILL.md found under " + empty.string()});
  EXPECT_EQ(libraryAsText(), before);
}

TEST_F(LibraryTest, AFileOfASkillIsShownOnlyFromWithinIt) {
  const std::string id = installed("a", {{"sub/text", "ü"}, {"binary", "\xFF"}});
  const Path skill = paths.skills() / "a";
  write(root / "secret", "secret");
  fs::create_symlink(root / "secret", skill / "link");
  fs::create_directory_symlink(root, skill / "door");
  ASSERT_EQ(::mkfifo((skill / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(engine().skillFileText(id, "sub/../sub/./text"), "ü");
  for (const auto* noText : {"binary", "fifo", "sub"})
    EXPECT_EQ(engine().skillFileText(id, noText), std::nullopt) << noText;
  for (const auto* path :
       {"../../../secret", "sub/../../a/binary", "/etc/passwd", "", ".", "link", "door/secret", "door/../binary/"}) {
    EXPECT_THAT(errorOf([&] { engine().skillFileText(id, path); }).kind(),
                testing::AnyOf(Kind::invalidInput, Kind::notFound))
        << path;
  }
}

TEST_F(LibraryTest, RemovingARecordKeepsTheFilesAndAForeignPathIsNeverDeleted) {
  const std::string kept = installed("kept");
  const std::string foreign = installed("foreign");
  engine().removeSkill(kept, false);
  EXPECT_TRUE(fs::exists(paths.skills() / "kept" / "SKILL.md"));
  const Path precious = skillFolder(home / "precious");
  for (const auto& path : {precious, paths.skills(), paths.skills() / ".." / ".." / "home"}) {
    sql("UPDATE skills SET central_path = '" + path.string() + "'");
    const std::string before = everythingAsText();
    EXPECT_THROW(engine().removeSkill(foreign, true), SkillsError) << path;
    EXPECT_EQ(engine().removeSkills({foreign, "absent"}, true, {}).errors.size(), 2U);
    EXPECT_EQ(everythingAsText(), before);
  }
}

TEST_F(LibraryTest, OpeningHealsWhatAKilledProcessLeft) {
  const std::string id = installed("removed");
  installed("present");
  const Path skills = paths.skills();
  skillFolder(skills / (".installing-" + newUuid()) / "0");
  skillFolder(skills / ".replacing-lost-name-abc123", {{"old", ""}});
  skillFolder(skills / ".replacing-present-abc123", {{"old", ""}});
  skillFolder(skills / ".removing-forgotten-abc123");
  fs::rename(skills / "removed", skills / ".removing-removed-abc123");
  fs::create_directories(user.temp / "orvanta-archive-12345678");
  fs::last_write_time(user.temp / "orvanta-archive-12345678",
                      fs::file_time_type::clock::now() - std::chrono::hours(48));
  const OtherProcess installing([&](const auto& waitForTheEnd) {
    const StagingFolder staging(paths.skills());
    waitForTheEnd();
  });
  const std::string before = libraryAsText();
  {
    const OtherProcess busy([&](const auto& waitForTheEnd) {
      const auto lock = LibraryLock::acquire(paths.lock(), std::chrono::seconds(0));
      waitForTheEnd();
    });
    reopen();
    EXPECT_EQ(libraryAsText(), before) << "nothing is healed while another process works";
    EXPECT_EQ(engine().skills().size(), 2U) << "but reading does not wait";
  }
  reopen();
  auto healed = folders();
  EXPECT_EQ(std::erase_if(healed, [](auto& name) { return name.starts_with(".installing-"); }), 1U) << "that in use";
  EXPECT_EQ(healed, (std::set<std::string>{"lost-name", "present", "removed"}));
  EXPECT_FALSE(fs::exists(skills / "present" / "old"));
  EXPECT_TRUE(fs::exists(skills / "lost-name" / "old"));
  EXPECT_EQ(engine().skillFiles(id).size(), 1U);
  EXPECT_TRUE(fs::is_empty(user.temp));
}

TEST_F(LibraryTest, HealingRemovesNothingOfSomebodyElses) {
  const std::string id = installed("removed");
  const Path skills = paths.skills();
  fs::rename(skills / "removed", skills / ".removing-removed-abc123");
  skillFolder(skills / "removed", {{"mine", ""}});
  std::set<std::string> expected{"removed"};
  for (const auto* own : {".removing-old-notes", ".replacing-pdf-backup", ".installing-later", ".updating-things"}) {
    skillFolder(skills / own);
    expected.insert(own);
  }
  reopen();
  EXPECT_TRUE(fs::exists(skills / "removed" / "mine"));
  auto found = folders();
  EXPECT_EQ(std::erase_if(found, [](auto& name) { return name.starts_with("removed-before-"); }), 1U);
  EXPECT_EQ(found, expected);
}

TEST_F(LibraryTest, SeveralProcessesMayChangeTheLibraryAtOnce) {
  agentInstalled("cursor");
  inProcesses(3, [&](int process) {
    const std::string own = std::to_string(process);
    for (int i = 0; i < 5; ++i) {
      const std::string id = reopen().installLocal(givenSkill("s" + own + std::to_string(i)), {}).record.id;
      engine().deploy(id, "cursor", false);
      engine().installLocal(givenSkill(own + "/same", {{"content", own}}), {});
    }
  });
  EXPECT_EQ(engine().skills().size(), 18U);
  EXPECT_EQ(folders().size(), 18U) << "and no staging folder";
  EXPECT_EQ(engine().repairDeployments({}).skipped, 15);
}

TEST_F(LibraryTest, OneEngineServesSeveralThreads) {
  agentInstalled("cursor");
  engine();
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([this, thread] {
      for (int i = 0; i < 3; ++i) {
        const std::string id = installed("s" + std::to_string(thread) + std::to_string(i));
        EXPECT_TRUE(engine().deploy(id, "cursor", false).changed);
        EXPECT_FALSE(engine().summaries(engine().skills()).empty());
        engine().setSkillEnabled(id, false);
      }
    });
  }
  threads.clear();
  EXPECT_EQ(engine().skills().size(), 9U);
  EXPECT_TRUE(fs::is_empty(home / ".cursor/skills"));
}

TEST_F(LibraryTest, ALibraryThatCannotBeOpenedIsAnErrorThatSaysWhy) {
  engine().setSetting("custom_tool_paths", "{broken");
  EXPECT_THAT(errorOf([&] { reopen(); }), IsError(Kind::database, "custom_tool_paths"));
  sql("DELETE FROM settings; PRAGMA user_version = 9");
  EXPECT_THAT(errorOf([&] { engine(); }), IsError(Kind::database, "newer than this app supports"));
  for (const auto* suffix : {"", "-wal", "-shm"}) fs::remove(paths.database().string() + suffix);
  write(paths.database(), "no database");
  EXPECT_THAT(errorOf([&] { engine(); }), IsError(Kind::database, "not a database"));
  fs::remove(paths.database());
  installed("a");
  reopen();
  asOrdinaryUser([&] {
    for (const auto& path : {paths.database(), paths.base()}) ::chmod(path.c_str(), 0500);
    EXPECT_THAT(errorOf([&] { reopen().setSyncMode(SyncMode::copy); }),
                IsError(Kind::database, "(Permission denied); make"));
  });
}

TEST_F(LibraryTest, TagsAreKeptInOneSpelling) {
  const std::string a = installed("a");
  const std::string b = installed("b");
  EXPECT_EQ(engine().setTags(a, {" Web ", "web", "ÜBER\n"}).tags, (Texts{"web", "über"}));
  EXPECT_EQ(engine().addTags(b, {"WEB", "new"}).tags, (Texts{"new", "web"}));
  EXPECT_EQ(engine().removeTags(b, {"NEW"}).tags, Texts{"web"});
  engine().renameTag("Über", "WEB ");
  EXPECT_EQ(engine().allTags(), (std::vector<TagCount>{{"web", 2}}));
  EXPECT_THAT(errorOf([&] { engine().addTags(a, {"x", " \t"}); }), IsError(Kind::invalidInput, "empty"));
  EXPECT_THAT(errorOf([&] { engine().renameTag("absent", "x"); }), IsError(Kind::notFound, "absent"));
  EXPECT_EQ(engine().summary(a).tags, Texts{"web"});
  engine().deleteTag("WEB");
  EXPECT_TRUE(engine().tagsBySkill().empty());
}

TEST_F(LibraryTest, AnAgentIsSavedOnlyWhenItCanBeUsed) {
  const CustomToolDefinition good{"my-agent_1", " Mine ", " ~/mine ", ".mine/skills", ToolCategory::coding};
  engine().saveCustomTool({"my-agent_1", "Old", "~/old", {}, ToolCategory::coding});
  engine().saveCustomTool(good);
  EXPECT_EQ(engine().adapter("my-agent_1").displayName, "Mine");
  EXPECT_EQ(engine().tools().size(), 55U);
  const std::string inLibrary = (paths.base() / "x").string();
  const std::vector<std::tuple<CustomToolDefinition, Kind, std::string>> table{
      {{"two words", "N", "~/n", {}, {}}, Kind::invalidInput, "Tool key may only contain letters, digits, '_' and '-'"},
      {{"", "N", "~/n", {}, {}}, Kind::invalidInput, "Tool key may only"},
      {{"é", "N", "~/n", {}, {}}, Kind::invalidInput, "Tool key may only"},
      {{"cursor", "N", "~/n", {}, {}}, Kind::conflict, "'cursor' is a built-in agent"},
      {{"n", " \n", "~/n", {}, {}}, Kind::invalidInput, "Display name is required"},
      {{"n", "N", "  ", {}, {}}, Kind::invalidInput, "Skills directory is required"},
      {{"n", "N", "relative", {}, {}}, Kind::invalidInput, "absolute path"},
      {{"n", "N", inLibrary, {}, {}}, Kind::invalidInput, "inside the library"},
      {{"n", "N", "~/n", "../out", {}}, Kind::invalidInput, "not a folder inside a project"}};
  const std::string before = recordsAsText();
  for (const auto& [each, kind, message] : table) {
    const auto& definition = each;
    EXPECT_THAT(errorOf([&] { engine().saveCustomTool(definition); }), IsError(kind, message));
  }
  for (const auto* path : {"", "relative", inLibrary.c_str()}) {
    EXPECT_THAT(errorOf([&] { engine().setToolPath("cursor", path); }).kind(), Kind::invalidInput) << path;
  }
  EXPECT_THAT(errorOf([&] { engine().removeCustomTool("cursor"); }), IsError(Kind::invalidInput, "built-in"));
  EXPECT_THAT(errorOf([&] { engine().setToolEnabled("nobody", false); }), IsError(Kind::notFound, "nobody"));
  EXPECT_EQ(recordsAsText(), before);

  const std::string id = installed("a");
  engine().setToolOrder({"my-agent_1", "codex"});
  engine().setToolEnabled("my-agent_1", false);
  engine().setToolEnabled("my-agent_1", true);
  engine().deploy(id, "my-agent_1", false);
  EXPECT_EQ(engine().tools().front().deployedCount, 1);
  EXPECT_EQ(engine().removeCustomTool("my-agent_1"), 1U);
  EXPECT_EQ(engine().tools().front().key, "codex");
  EXPECT_EQ(engine().summary(id).targets.size(), 0U);
}

TEST_F(LibraryTest, TheLogNamesWhatWasDoneAndIsExportedWhole) {
  EXPECT_EQ(read(engine().exportAudit()), "[]\n");
  agentInstalled("cursor");
  const std::string id = installed("caf\xC3\xA9");
  engine().deploy(id, "cursor", false);
  engine().undeploy(id, "cursor");
  engine().removeSkill(id, false);
  const Path file = engine().exportAudit();
  EXPECT_EQ(file.parent_path(), paths.logs());
  const Json log = Json::parse(read(file));
  ASSERT_EQ(log.size(), 4U);
  EXPECT_EQ(actions(), (Texts{"remove_skill", "undeploy", "deploy", "install_local"}));
  const Json& deployed = log[2];
  EXPECT_EQ(deployed.at("action").get<std::string>() + deployed.at("tool").get<std::string>(), "deploycursor");
  EXPECT_EQ(deployed.at("skill_name"), "café");
  EXPECT_EQ(deployed.at("success"), true);
  EXPECT_FALSE(deployed.contains("detail"));
  EXPECT_EQ(log[0].at("detail"), "record only");
  EXPECT_NE(engine().exportAudit(), file) << "no export overwrites another";
  engine().clearAudit();
  EXPECT_EQ(actions(), Texts{"clear_log"});
}

}  // namespace
}  // namespace orvanta
