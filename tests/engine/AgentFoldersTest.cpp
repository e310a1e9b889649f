// What lies in agents' folders that the library did not place: seeing, importing, adopting and deleting it.

#include "files/FS.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using EntryKind = AgentSkillEntry::Kind;

class AgentFoldersTest : public Sandbox {
 protected:
  AgentFoldersTest() {
    for (const auto* agent : {"cursor", "codex", "cline"}) agentInstalled(agent);
  }

  const Path cursor = home / ".cursor" / "skills";
};

TEST_F(AgentFoldersTest, EveryFolderIsTakenForWhatItIs) {
  const std::string known = installed("known");
  const std::string placed = installed("placed");
  const std::string gone = installed("gone");
  engine().deploy({placed, gone}, {"cursor"}, false, {});
  fs::remove(cursor / "gone");
  agentHas("cursor", "mine");
  fs::copy(paths.skills() / "known", cursor / "copied by hand");
  fs::create_directory(cursor / "no skill");
  std::map<std::string, std::pair<EntryKind, std::string>> kinds;
  for (const auto& entry : engine().agentEntries("cursor")) {
    kinds[entry.relativePath] = {entry.kind, entry.skillId.value_or("")};
  }
  EXPECT_EQ(kinds, (decltype(kinds){{"placed", {EntryKind::managed, placed}},
                                    {"mine", {EntryKind::unmanaged, ""}},
                                    {"copied by hand", {EntryKind::unmanagedInLibrary, known}},
                                    {"gone", {EntryKind::missing, gone}}}));
}

TEST_F(AgentFoldersTest, AnImportCopiesAndAnAdoptionReplacesTheOriginal) {
  const Path original = agentHas("cursor", "mine", {{"sub/file", "x"}});
  const std::string before = folderAsText(home);
  const auto imported = engine().importUnmanaged(original, "cursor", false);
  EXPECT_EQ(folderAsText(home), before);
  EXPECT_EQ(imported.record.sourceType, SourceType::imported);
  EXPECT_EQ(imported.record.sourceRef, original.string());
  const auto adopted = engine().importUnmanaged(original, "cursor", true);
  EXPECT_EQ(adopted.record.id, imported.record.id) << "the same content is held once";
  EXPECT_EQ(fs::read_symlink(original), paths.skills() / "mine");
  EXPECT_EQ(read(original / "sub/file"), "x");
  EXPECT_EQ(engine().agentEntries("cursor").front().kind, EntryKind::managed);
  EXPECT_TRUE(engine().undeploy(adopted.record.id, "cursor").changed);
  EXPECT_EQ(engine().auditEntries(2, 1).front().action, "adopt");
}

TEST_F(AgentFoldersTest, AnAdoptionNeverLosesWhatTheLibraryWouldNotKeep) {
  const Path repository = agentHas("cursor", "repository", {{".git/HEAD", "ref: x"}});
  const std::string before = everythingAsText();
  EXPECT_THAT(errorOf([&] { engine().importUnmanaged(repository, "cursor", true); }),
              IsError(Kind::refused, "Git repository"));
  EXPECT_EQ(everythingAsText(), before);

  const Path elsewhere = skillFolder(root / "work" / "linked", {{"precious", "1"}});
  fs::create_directory_symlink(elsewhere, cursor / "linked");
  engine().importUnmanaged(cursor / "linked", "cursor", true);
  EXPECT_EQ(read(elsewhere / "precious"), "1") << "only the link is replaced";
  EXPECT_EQ(fs::read_symlink(cursor / "linked"), paths.skills() / "linked");
}

TEST_F(AgentFoldersTest, OnlyWhatLiesUnmanagedInTheAgentsFolderIsTouched) {
  const std::string placed = installed("placed");
  engine().deploy({placed}, {"cursor", "cline"}, false, {});
  skillFolder(home / "private");
  agentHas("cursor", "mine");
  fs::create_directory_symlink(home, cursor / "door");
  fs::create_directory_symlink(home / ".agents" / "skills", cursor / "other agent");
  const std::string before = everythingAsText();
  const std::string outside = "'s skills directory";
  const std::string managed = " is managed by Orvanta; undeploy it instead";
  const std::vector<std::pair<Path, std::string>> table{{home / "private", outside},
                                                        {cursor / "../../private", outside},
                                                        {cursor / "mine/../../../private", outside},
                                                        {cursor / "door" / "private", outside},
                                                        {cursor, outside},
                                                        {cursor / ".", outside},
                                                        {"/", outside},
                                                        {"", outside},
                                                        {cursor / "placed" / "SKILL.md", outside},
                                                        {cursor / "other agent" / "placed", outside},
                                                        {cursor / "placed", managed},
                                                        {cursor / "placed/", managed}};
  for (const auto& [each, message] : table) {
    const auto& path = each;  // what a lambda is to see must be a variable
    EXPECT_THAT(errorOf([&] { engine().deleteUnmanaged(path, "cursor"); }), IsError(Kind::refused, message)) << path;
    EXPECT_EQ(engine().planDeleteUnmanaged(path, "cursor").front().action, PlannedStep::Action::refused) << path;
    for (const bool adopt : {false, true}) {
      EXPECT_THAT(errorOf([&] { engine().importUnmanaged(path, "cursor", adopt); }), IsError(Kind::refused, message))
          << path;
    }
  }
  EXPECT_THAT(errorOf([&] { engine().deleteUnmanaged(cursor / "absent", "cursor"); }),
              IsError(Kind::notFound, "absent"));
  EXPECT_EQ(everythingAsText(), before);
  for (const auto* unmanaged : {"mine", "door"}) engine().deleteUnmanaged(cursor / unmanaged, "cursor");
  EXPECT_TRUE(fs::exists(home / "private")) << "of a link only the link goes";
  EXPECT_FALSE(FS::exists(cursor / "door") || FS::exists(cursor / "mine"));
}

TEST_F(AgentFoldersTest, AFolderThatHoldsADeploymentIsNotDeletedAsAWhole) {
  agentInstalled("hermes");
  engine().setToolPath("cursor", (home / ".hermes/skills/group").string());
  engine().deploy(installed("deep"), "cursor", false);
  EXPECT_THAT(errorOf([&] { engine().deleteUnmanaged(home / ".hermes/skills/group", "hermes"); }),
              IsError(Kind::refused, "undeploy it instead"));
  EXPECT_TRUE(agentHolds("cursor", "deep"));
}

TEST_F(AgentFoldersTest, WhatAgentsHoldIsDiscoveredOnceForEachContent) {
  engine().deploy(installed("managed"), "cursor", false);
  installed("held");
  agentHas("codex", "held");
  const Path shared = agentHas("cline", "shared", {{"v", "1"}});  // codex searches this folder too
  for (const auto* agent : {"cursor", "codex"}) agentHas(agent, "twin", {{"v", "1"}});
  agentHas("cline", "twin", {{"v", "2"}});
  fs::create_directory_symlink(paths.skills() / "held", cursor / "link into the library");
  const auto groups = engine().discover({});
  ASSERT_EQ(groups.size(), 3U);
  std::map<std::string, std::size_t> sizes;
  for (const auto& group : groups) sizes[group.name] = std::max(sizes[group.name], group.locations.size());
  EXPECT_EQ(sizes, (std::map<std::string, std::size_t>{{"shared", 1}, {"twin", 2}}));

  EXPECT_THAT(errorOf([&] { engine().importDiscovered({}, true, {}); }),
              IsError(Kind::invalidInput, "Nothing to import"));
  auto stale = groups;
  stale.push_back(stale.front());
  stale.back().locations.front().foundPath = (cursor / "vanished").string();
  const auto report = engine().importDiscovered(stale, true, {});
  EXPECT_EQ(report.installed.size(), 3U);
  EXPECT_EQ(report.errors.size(), 1U);
  for (const auto& link : {cursor / "twin", home / ".codex/skills/twin", shared}) {
    EXPECT_EQ(FS::kind(link), FS::Kind::symlink) << link;
    EXPECT_TRUE(fs::exists(link / "SKILL.md"));
  }
  EXPECT_NE(read(cursor / "twin/v"), read(home / ".agents/skills/twin/v"));
  EXPECT_TRUE(engine().discover({}).empty());
}

TEST_F(AgentFoldersTest, ADisabledSkillIsNotPutBackByAdoptingACopyOfIt) {
  const std::string id = installed("off");
  engine().setSkillEnabled(id, false);
  const Path copy = agentHas("cursor", "off");
  const std::string before = everythingAsText();
  EXPECT_THAT(errorOf([&] { engine().importUnmanaged(copy, "cursor", true); }), IsError(Kind::refused, "disabled"));
  EXPECT_EQ(everythingAsText(), before);
}

}  // namespace
}  // namespace orvanta
