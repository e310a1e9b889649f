// Skills in agents' folders: placing, taking out, mending, and what must never be harmed by it.

#include "files/FS.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Action = PlannedStep::Action;

class DeploymentTest : public Sandbox {
 protected:
  DeploymentTest() {
    for (const auto* agent : {"cursor", "claude_code", "cline", "warp"}) agentInstalled(agent);
  }

  static bool isLink(const Path& path) { return FS::kind(path) == FS::Kind::symlink; }

  const Path shared = home / ".agents" / "skills";
};

TEST_F(DeploymentTest, AUsersOwnFolderIsNeverReplacedWithoutConsent) {
  const std::string id = installed("notes");
  const Path place = placeOf("cursor", "notes");
  write(root / "precious" / "work", "of years");
  const std::vector<std::function<void()>> obstacles{[&] {
                                                       agentHas("cursor", "notes", {{"mine", "precious"}});
                                                     },
                                                     [&] { write(place, "a file"); },
                                                     [&] { fs::create_symlink("nowhere", place); },
                                                     [&] { fs::create_symlink(root / "precious", place); }};
  fs::create_directories(place.parent_path());
  for (const auto& obstruct : obstacles) {
    fs::remove_all(place);
    obstruct();
    const std::string before = everythingAsText();
    EXPECT_EQ(engine().planDeploy({id}, {"cursor"}, false).front().action, Action::refused);
    EXPECT_THAT(errorOf([&] { engine().deploy(id, "cursor", false); }), IsError(Kind::refused, "Refusing to replace "));
    EXPECT_EQ(engine().deploy({id}, {"cursor"}, false, {}).errors.size(), 1U);
    EXPECT_FALSE(engine().auditEntries(1, 0).front().success);
    reopen();
    EXPECT_EQ(everythingAsText(), before);

    EXPECT_TRUE(engine().deploy(id, "cursor", true).changed);
    EXPECT_EQ(fs::read_symlink(place), paths.skills() / "notes");
    EXPECT_EQ(read(root / "precious" / "work"), "of years");
    engine().undeploy(id, "cursor");
  }
}

TEST_F(DeploymentTest, WhatCannotBeDeployedIsRefusedWithItsReason) {
  const std::string id = installed("a");
  const std::string disabled = installed("b");
  const std::string lost = installed("c");
  engine().setSkillEnabled(disabled, false);
  fs::remove_all(paths.skills() / "c");
  engine().setToolEnabled("warp", false);
  const std::string before = everythingAsText();
  const std::vector<std::tuple<std::string, std::string, Kind, std::string>> table{
      {"no such", "cursor", Kind::notFound, "no such"},
      {id, "nobody", Kind::notFound, "nobody"},
      {id, "codex", Kind::refused, "Codex is not installed"},
      {id, "warp", Kind::refused, "Warp is disabled in Settings"},
      {disabled, "cursor", Kind::refused, "'b' is disabled; enable it first"},
      {lost, "cursor", Kind::notFound, "Library directory missing for 'c'"}};
  for (const auto& row : table) {
    EXPECT_THAT(errorOf([&] { engine().deploy(std::get<0>(row), std::get<1>(row), true); }),
                IsError(std::get<2>(row), std::get<3>(row)));
  }
  EXPECT_EQ(everythingAsText(), before);
  const auto report = engine().deploy({disabled, id}, {"cursor", "nobody"}, false, {});
  EXPECT_EQ(report.done.size(), 1U);
  EXPECT_EQ(report.errors.size(), 3U);
  EXPECT_TRUE(agentHolds("cursor", "a")) << "one failure does not stop the others";
}

TEST_F(DeploymentTest, WhatIsInPlaceIsNotTouchedAgain) {
  std::vector<std::string> ids;
  for (const auto* name : {"a", "b", "c"}) ids.push_back(installed(name, {{"sub/file", "x"}}));
  const std::vector<std::string> agents{"cursor", "claude_code", "cline", "warp"};
  for (const SyncMode mode : kAllSyncModes) {
    engine().setSyncMode(mode);
    EXPECT_TRUE(engine().deploy(ids, agents, false, {}).errors.empty());
    const std::string touches = touchesAsText(home) + touchesAsText(paths.skills());
    const std::string records = recordsAsText() + sql("SELECT COUNT(*) FROM audit_log");
    reopen();
    const auto again = engine().deploy(ids, agents, false, {});
    EXPECT_EQ(again.done.size(), 12U);
    EXPECT_TRUE(std::none_of(again.done.begin(), again.done.end(), [](const Placement& pair) { return pair.changed; }));
    EXPECT_EQ(engine().repairDeployments({}).skipped, 12);
    EXPECT_EQ(recordsAsText() + sql("SELECT COUNT(*) FROM audit_log"), records);
    EXPECT_FALSE(engine().deploy(ids[0], "cursor", true).changed);
    EXPECT_EQ(touchesAsText(home) + touchesAsText(paths.skills()), touches) << rawValue(mode);
  }
}

TEST_F(DeploymentTest, APlanSaysWhatTheDeedThenDoes) {
  const std::string a = installed("a");
  const std::string b = installed("b");
  engine().deploy(a, "cursor", false);
  agentHas("cursor", "b");
  const std::string before = everythingAsText();
  const auto plan = engine().planDeploy({a, b}, {"cursor", "cline", "warp"}, false);
  std::vector<Action> actions;
  for (const auto& step : plan) actions.push_back(step.action);
  EXPECT_EQ(actions,
            (std::vector{Action::keep, Action::place, Action::keep, Action::refused, Action::place, Action::keep}));
  for (const auto& other : {engine().planRepair(), engine().planRemoveSkills({a, b}, true),
                            engine().planSetSkillEnabled(a, false), engine().planUndeploy({a}, {"cursor"})}) {
    EXPECT_FALSE(other.empty());
  }
  EXPECT_EQ(everythingAsText(), before) << "planning changes nothing";
}

TEST_F(DeploymentTest, AFolderThatAgentsShareStaysUntilTheLastOfThemLetsGo) {
  const std::string id = installed("a");
  fs::create_directory(home / ".agents");
  fs::create_directory_symlink(home / ".agents", home / ".claude" / "alias");
  engine().setToolPath("claude_code", (home / ".claude/alias/skills").string());
  const std::vector<std::string> agents{"cline", "warp", "claude_code"};
  for (const SyncMode mode : kAllSyncModes) {
    engine().setSyncMode(mode);
    EXPECT_TRUE(engine().deploy({id}, agents, false, {}).errors.empty());
    EXPECT_EQ(isLink(shared / "a"), mode == SyncMode::symlink);
    EXPECT_EQ(engine().undeploy(id, "cline").note, "kept: still used by another agent");
    EXPECT_FALSE(engine().undeploy(id, "claude_code").changed);
    EXPECT_TRUE(agentHolds("warp", "a"));
    EXPECT_TRUE(engine().undeploy(id, "warp").changed);
    EXPECT_TRUE(fs::is_empty(shared));

    engine().deploy({id}, agents, false, {});
    EXPECT_TRUE(engine().undeploy({id}, agents, {}).done.back().changed);
    EXPECT_TRUE(fs::is_empty(shared));
  }
}

TEST_F(DeploymentTest, OneAgentsSkillIsNeverReplacedForAnother) {
  agentHas("cline", "folder", {{"SKILL.md", "---\nname: other\n---\n"}});
  const std::string adopted = engine().importUnmanaged(shared / "folder", "cline", true).record.id;
  const std::string id = installed("folder");
  const std::string before = everythingAsText();
  EXPECT_THAT(errorOf([&] { engine().deploy(id, "warp", true); }), IsError(Kind::refused, "another skill"));
  EXPECT_EQ(everythingAsText(), before);

  engine().setSyncMode(SyncMode::copy);
  EXPECT_EQ(engine().deploy(id, "cursor", false).mode, SyncMode::copy);
  engine().undeploy(adopted, "cline");
  EXPECT_EQ(engine().deploy(id, "warp", false).mode, SyncMode::copy);
  engine().setSyncMode(SyncMode::symlink);
  EXPECT_EQ(engine().deploy(id, "cline", true).mode, SyncMode::copy) << "what the other agent has is shared as it is";
  EXPECT_FALSE(isLink(shared / "folder"));
}

TEST_F(DeploymentTest, ASkillFollowsItsAgentToANewFolder) {
  const auto move = [&](const std::string& folderName) {
    engine().setToolPath("cline", (home / folderName).string());
    return home / folderName;
  };
  const std::string id = installed("a");
  engine().deploy(id, "cline", false);
  engine().deploy(id, "warp", false);
  const Path second = move("second");
  engine().deploy(id, "cline", false);
  EXPECT_TRUE(isLink(second / "a") && isLink(shared / "a")) << "the other agent still uses the old place";
  const Path third = move("third");
  engine().deploy({id}, {"cline"}, false, {});
  EXPECT_TRUE(isLink(third / "a") && fs::is_empty(second)) << "ours alone, so it moves";
  fs::remove(third / "a");
  fs::create_directory_symlink(home / "Downloads" / "a", third / "a");
  const std::string before = folderAsText(third);
  move("fourth");
  engine().deploy(id, "cline", false);
  EXPECT_EQ(folderAsText(third), before) << "the user's by now";
  EXPECT_EQ(engine().undeploy(id, "cline").targetPath, (home / "fourth" / "a").string());
}

TEST_F(DeploymentTest, AnEditReachesLinksAtOnceAndCopiesByRepair) {
  const std::string id = installed("a");
  engine().deploy(id, "cursor", false);
  engine().setSyncMode(SyncMode::copy);
  engine().deploy(id, "claude_code", false);
  const Path copy = placeOf("claude_code", "a");
  EXPECT_TRUE(isLink(placeOf("cursor", "a")) && !isLink(copy)) << "existing deployments keep their mode";
  write(paths.skills() / "a" / "new", "edit");
  EXPECT_EQ(read(placeOf("cursor", "a") / "new"), "edit");
  EXPECT_FALSE(fs::exists(copy / "new"));
  EXPECT_EQ(engine().planRepair().size(), 2U);
  EXPECT_EQ(engine().repairDeployments({}), (ApplyReport{.deployed = 1, .removed = 0, .skipped = 1, .errors = {}}));
  EXPECT_EQ(read(copy / "new"), "edit");
  EXPECT_TRUE(engine().deploy(id, "cursor", false).changed) << "deployed anew it takes the mode in force";
  EXPECT_FALSE(isLink(placeOf("cursor", "a")));
}

TEST_F(DeploymentTest, ACopyThatAgentsShareNeverCountsAsFresherThanItIs) {
  const std::string id = installed("a");
  engine().setSyncMode(SyncMode::copy);
  engine().deploy({id}, {"cline", "warp"}, false, {});
  const std::vector<std::function<void()>> refreshes{[&] {
                                                       engine().deploy({id}, {"cline", "warp"}, false, {});
                                                     },
                                                     [&] { engine().deploy(id, "warp", false); },
                                                     [&] { engine().repairDeployments({}); },
                                                     [&] {
                                                       engine().undeploy(id, "warp");
                                                       engine().deploy(id, "warp", false);
                                                       engine().undeploy(id, "cline");
                                                     }};
  for (std::size_t i = 0; i < refreshes.size(); ++i) {
    write(paths.skills() / "a" / "version", std::to_string(i));
    refreshes[i]();
    engine().repairDeployments({});
    EXPECT_EQ(read(shared / "a" / "version"), std::to_string(i));
  }
}

TEST_F(DeploymentTest, RepairMendsWhatIsOursAndReportsTheRest) {
  std::map<std::string, std::string> ids;
  for (const auto* name : {"gone", "astray", "taken", "lost", "disabled", "intact"}) {
    ids[name] = installed(name);
    engine().deploy(ids[name], "cursor", false);
  }
  const auto at = [&](const std::string& name) { return placeOf("cursor", name); };
  fs::remove(at("gone"));
  fs::remove(at("astray"));
  fs::create_symlink(home, at("astray"));
  fs::remove(at("taken"));
  agentHas("cursor", "taken", {{"mine", ""}});
  fs::remove_all(paths.skills() / "lost");
  engine().setSkillEnabled(ids["disabled"], false);
  agentHas("cursor", "disabled", {{"mine", ""}});
  const std::string untouched =
      touchesAsText(at("intact")) + touchesAsText(at("taken")) + touchesAsText(at("disabled"));

  const auto report = engine().repairDeployments({});
  EXPECT_EQ(report.deployed, 2);
  EXPECT_EQ(report.skipped, 1);
  EXPECT_THAT(report.errors, testing::UnorderedElementsAre(testing::HasSubstr("does not match its recorded deployment"),
                                                           testing::HasSubstr("Library directory missing for 'lost'")));
  for (const auto* mended : {"gone", "astray"}) EXPECT_EQ(fs::read_symlink(at(mended)), paths.skills() / mended);
  EXPECT_EQ(touchesAsText(at("intact")) + touchesAsText(at("taken")) + touchesAsText(at("disabled")), untouched);
  EXPECT_EQ(engine().dashboardStats().brokenTargets, 2);
  fs::remove_all(at("taken"));
  EXPECT_EQ(engine().repairDeployments({}).errors.size(), 1U);
  EXPECT_EQ(engine().dashboardStats().brokenTargets, 1);
}

TEST_F(DeploymentTest, WhatNoLongerMatchesItsRecordIsLeftButNoLongerOurs) {
  const std::string id = installed("a");
  engine().deploy(id, "cursor", false);
  fs::remove(placeOf("cursor", "a"));
  agentHas("cursor", "a", {{"mine", ""}});
  const std::string before = folderAsText(home);
  const auto taken = engine().undeploy(id, "cursor");
  EXPECT_FALSE(taken.changed);
  EXPECT_EQ(taken.note, "preserved: no longer matches the recorded deployment");
  EXPECT_EQ(folderAsText(home), before);
  EXPECT_TRUE(engine().summary(id).targets.empty());
  EXPECT_EQ(engine().undeploy(id, "cursor").note, "not deployed");
}

TEST_F(DeploymentTest, TheAgentsThatHoldASkillAreExactlyTheChosenOnes) {
  const std::string id = installed("a");
  engine().setDeployedTools(id, {"cursor", "cline"});
  engine().setDeployedTools(id, {"cursor", "claude_code"});
  EXPECT_THAT(engine().summary(id).deployedTools(), testing::UnorderedElementsAre("cursor", "claude_code"));
  EXPECT_FALSE(agentHolds("cline", "a"));
}

TEST_F(DeploymentTest, ADisabledSkillIsOutOfAllFoldersAndComesBackWhereItWas) {
  const std::string id = installed("a");
  agentInstalled("codex");
  fs::create_directory(home / ".agents");
  fs::create_directory_symlink(home / ".agents", home / ".codex" / "alias");
  engine().setToolPath("codex", (home / ".codex/alias/skills").string());
  engine().deploy(id, "cursor", false);
  engine().setSyncMode(SyncMode::copy);
  engine().deploy({id}, {"claude_code", "cline", "warp", "codex"}, false, {});
  const std::string before = folderAsText(home);
  engine().setSkillEnabled(id, false);
  reopen();
  for (const auto* agent : {"cursor", "cline", "claude_code"}) {
    EXPECT_FALSE(FS::exists(placeOf(agent, "a"))) << agent;
  }
  write(placeOf("cursor", "a"), "somebody else's");
  const std::string obstructed = everythingAsText();
  EXPECT_THAT(errorOf([&] { engine().setSkillEnabled(id, true); }), IsError(Kind::refused, "Refusing to replace"));
  EXPECT_EQ(everythingAsText(), obstructed);
  fs::remove(placeOf("cursor", "a"));
  EXPECT_EQ(engine().setSkillEnabled(id, true).deployedTools().size(), 5U);
  EXPECT_EQ(folderAsText(home), before);
}

// Each operation with the statement that fails at its end.
TEST_F(DeploymentTest, WhenTheRecordsCannotBeWrittenTheFilesArePutBack) {
  const std::string a = installed("a");
  const std::string b = installed("b");
  const Path own = agentHas("claude_code", "b", {{"mine", ""}});
  engine().setSyncMode(SyncMode::copy);
  engine().deploy({a}, {"cline", "warp"}, false, {});
  engine().setSyncMode(SyncMode::symlink);
  engine().deploy(a, "cursor", false);
  givenSkill("fresh");
  const std::vector<std::string> both{a, b};
  const std::vector<std::string> agents{"cursor", "cline", "warp", "claude_code"};
  const std::vector<std::tuple<std::string, std::string, std::function<void()>>> table{
      {"deploy", "INSERT ON skill_targets", [&] { engine().deploy(b, "claude_code", true); }},
      {"deploy many", "INSERT ON skill_targets", [&] { engine().deploy(both, agents, true, {}); }},
      {"undeploy", "DELETE ON skill_targets", [&] { engine().undeploy(both, agents, {}); }},
      {"disable", "INSERT ON skill_targets", [&] { engine().setSkillEnabled(a, false); }},
      {"remove", "DELETE ON skills", [&] { engine().removeSkill(a, true); }},
      {"install", "INSERT ON skills", [&] { engine().installFolder(home / "Downloads", 4, {}); }},
      {"adopt", "INSERT ON skill_targets", [&] { engine().importUnmanaged(own, "claude_code", true); }}};
  for (const auto& [name, statement, operation] : table) {
    const std::string before = everythingAsText();
    sql("CREATE TRIGGER woe BEFORE " + statement + " BEGIN SELECT RAISE(ABORT, 'full of woe'); END");
    EXPECT_THAT(errorOf(operation), IsError(Kind::database, "full of woe")) << name;
    sql("DROP TRIGGER woe");
    EXPECT_EQ(everythingAsText(), before) << name;
    reopen();
    EXPECT_EQ(everythingAsText(), before) << name << ", reopened";
  }
}

}  // namespace
}  // namespace orvanta
