// Presets: their names and members, what they want, and what applying and deactivating them does to agents' folders.

#include "files/FS.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Action = PlannedStep::Action;
using Texts = std::vector<std::string>;

class PresetsTest : public Sandbox {
 protected:
  PresetsTest() {
    for (const auto* agent : {"cursor", "claude_code", "cline"}) agentInstalled(agent);
  }

  Preset presetOf(const std::string& name, const Texts& skillIds) {
    const Preset preset = engine().createPreset(name, {}, {});
    engine().addSkillsToPreset(preset.id, skillIds);
    return engine().preset(preset.id);
  }
  ApplyReport apply(const Preset& preset) { return engine().applyPreset(preset.id, false, {}); }
  PresetActivation activation(const Preset& preset) { return engine().presetActivation(engine().preset(preset.id)); }
  std::map<Action, int> counts(const Plan& plan) {
    std::map<Action, int> counts;
    for (const auto& step : plan) ++counts[step.action];
    return counts;
  }

  const std::string a = installed("a");
  const std::string b = installed("b");
};

TEST_F(PresetsTest, ANameIsGivenOnceHoweverItIsSpelled) {
  const Preset preset = engine().createPreset("  Revu\u00e9 ", "", "");
  EXPECT_EQ(preset.name, "Revu\u00e9");
  EXPECT_EQ(engine().presets().front().description, std::nullopt);
  for (const auto* taken : {"revu\u00c9", "REVUE\u0301", " Revu\u00e9\t"}) {
    EXPECT_THAT(errorOf([&] { engine().createPreset(taken, {}, {}); }), IsError(Kind::conflict, "already exists"));
  }
  EXPECT_THAT(errorOf([&] { engine().createPreset(" \u00a0\n", {}, {}); }),
              IsError(Kind::invalidInput, "Preset name is required"));
  EXPECT_THAT(errorOf([&] { engine().createPreset("\xff", {}, {}); }), IsError(Kind::invalidInput, "UTF-8"));
  const Preset other = engine().createPreset("other", {}, {});
  EXPECT_THAT(errorOf([&] { engine().updatePreset(other.id, "REVU\u00c9", {}, {}); }),
              IsError(Kind::conflict, "A preset named 'REVU\u00c9' already exists"));
  engine().updatePreset(preset.id, "REVU\u00c9", "about", "star");
  EXPECT_EQ(engine().preset(preset.id).name, "REVU\u00c9") << "its own name in other letters is free";
  engine().reorderPresets({other.id, preset.id});
  EXPECT_EQ(engine().presets().front().id, other.id);
}

TEST_F(PresetsTest, ACopyHasTheFirstFreeNameAndAllMembersAndSwitches) {
  const Preset review = presetOf("Review", {b, a});
  engine().setPresetSkillTool(review.id, a, "cursor", false);
  for (const auto* name : {"Review copy", "Review copy 2", "Review copy 3"}) {
    const Preset copy = engine().duplicatePreset(review.id);
    EXPECT_EQ(copy.name, name);
    EXPECT_EQ(copy.skillIds, (Texts{b, a}));
    EXPECT_FALSE(copy.isToolEnabled(a, "cursor"));
  }
  EXPECT_THAT(errorOf([&] { engine().duplicatePreset("gone"); }), IsError(Kind::notFound, "Preset not found"));
}

TEST_F(PresetsTest, MembersKeepTheirPlacesAndUnknownOnesAreRefused) {
  const std::string c = installed("c");
  const Preset preset = presetOf("p", {b});
  engine().addSkillsToPreset(preset.id, {a, b, c});
  EXPECT_EQ(engine().preset(preset.id).skillIds, (Texts{b, a, c}));
  engine().setPresetSkillTool(preset.id, a, "cursor", false);
  engine().removeSkillFromPreset(preset.id, a);
  engine().addSkillsToPreset(preset.id, {a});
  EXPECT_EQ(engine().preset(preset.id).skillIds, (Texts{b, c, a}));
  EXPECT_TRUE(engine().preset(preset.id).toolToggles.empty()) << "the switches went with the member";
  engine().setPresetSkills(preset.id, {c, a});
  const std::string before = recordsAsText();
  EXPECT_THAT(errorOf([&] {
                engine().addSkillsToPreset(preset.id, {b, "nobody"});
              }),
              IsError(Kind::notFound, "nobody"));
  EXPECT_THAT(errorOf([&] { engine().setPresetSkills(preset.id, {b, "nobody"}); }), IsError(Kind::notFound, "nobody"));
  EXPECT_THAT(errorOf([&] { engine().addSkillsToPreset("gone", {b}); }), IsError(Kind::notFound, "Preset not found"));
  EXPECT_THAT(errorOf([&] { engine().setPresetSkillTool(preset.id, b, "cursor", true); }),
              IsError(Kind::notFound, "Skill is not in this preset"));
  EXPECT_THAT(errorOf([&] { engine().setPresetSkillTool(preset.id, a, "no_agent", true); }),
              IsError(Kind::notFound, "no_agent"));
  EXPECT_EQ(recordsAsText(), before);
}

TEST_F(PresetsTest, ApplyingDeploysWhatIsWantedAndASecondTimeTouchesNothing) {
  for (const SyncMode mode : kAllSyncModes) {
    engine().setSyncMode(mode);
    const Preset preset = presetOf(std::string(rawValue(mode)), {a, b});
    engine().setPresetSkillTool(preset.id, b, "cline", false);
    EXPECT_EQ(activation(preset), (PresetActivation{0, 5}));
    EXPECT_EQ(counts(engine().planApplyPreset(preset.id, false)), (std::map<Action, int>{{Action::place, 5}}));
    EXPECT_EQ(apply(preset), (ApplyReport{.deployed = 5, .removed = 0, .skipped = 0, .errors = {}}));
    EXPECT_TRUE(activation(preset).isComplete());
    EXPECT_FALSE(agentHolds("cline", "b"));
    EXPECT_EQ(engine().activePresetId(), preset.id);

    const std::string touches = touchesAsText(home) + touchesAsText(paths.skills());
    const std::string records = recordsAsText();
    reopen();
    EXPECT_EQ(apply(preset), (ApplyReport{.deployed = 0, .removed = 0, .skipped = 5, .errors = {}}));
    EXPECT_EQ(touchesAsText(home) + touchesAsText(paths.skills()), touches);
    EXPECT_EQ(recordsAsText(), records);
    EXPECT_EQ(engine().auditEntries(1, 0).front().detail, preset.name + ": +0 -0 =5, 0 errors");

    EXPECT_EQ(engine().deactivatePreset(preset.id, {}).removed, 5);
    EXPECT_EQ(engine().activePresetId(), std::nullopt);
    EXPECT_EQ(activation(preset), (PresetActivation{0, 5})) << "deactivating is no choice of agents";
  }
}

TEST_F(PresetsTest, WhatIsIntactStaysWhateverModeAndContentItHas) {
  const Preset preset = presetOf("p", {a});
  apply(preset);
  engine().setSyncMode(SyncMode::copy);
  write(paths.skills() / "a" / "new", "content");
  EXPECT_EQ(apply(preset).skipped, 3);
  EXPECT_EQ(FS::kind(placeOf("cursor", "a")), FS::Kind::symlink);
  fs::remove(placeOf("cursor", "a"));
  EXPECT_EQ(apply(preset), (ApplyReport{.deployed = 1, .removed = 0, .skipped = 2, .errors = {}}));
  EXPECT_EQ(read(placeOf("cursor", "a") / "new"), "content") << "what is missing comes in the mode in force";
}

TEST_F(PresetsTest, ExclusiveTakesOutEverythingElseAndThePlanSaysSo) {
  const std::string c = installed("c");
  engine().deploy({a, c}, {"cursor", "claude_code"}, false, {});
  agentHas("cursor", "mine", {{"precious", "work"}});
  const Preset other = presetOf("other", {c});
  engine().applyPreset(other.id, false, {});
  const Preset preset = presetOf("p", {a, b});
  const std::string before = everythingAsText();
  const Plan plan = engine().planApplyPreset(preset.id, true);
  EXPECT_EQ(counts(plan), (std::map<Action, int>{{Action::place, 4}, {Action::keep, 2}, {Action::remove, 3}}));
  EXPECT_EQ(everythingAsText(), before);

  EXPECT_EQ(engine().applyPreset(preset.id, true, {}),
            (ApplyReport{.deployed = 4, .removed = 3, .skipped = 2, .errors = {}}));
  EXPECT_FALSE(agentHolds("cursor", "c"));
  EXPECT_EQ(read(placeOf("cursor", "mine") / "precious"), "work");
  EXPECT_EQ(activation(other), (PresetActivation{0, 3})) << "the preset that lost keeps its wishes";

  const Preset empty = presetOf("empty", {});
  EXPECT_EQ(engine().applyPreset(empty.id, true, {}).removed, 6);
  EXPECT_FALSE(activation(empty).isComplete());
  EXPECT_TRUE(engine().summary(a).targets.empty());
}

TEST_F(PresetsTest, AgentsThatShareAFolderArePlannedAsTheyAreDone) {
  agentInstalled("warp");  // shares its folder with cline
  engine().deploy(a, "warp", false);
  const Preset preset = presetOf("p", {a});
  engine().setPresetSkillTool(preset.id, a, "warp", false);
  const auto plan = counts(engine().planApplyPreset(preset.id, true));
  EXPECT_EQ(plan, (std::map<Action, int>{{Action::remove, 1}, {Action::place, 3}}));
  EXPECT_EQ(engine().applyPreset(preset.id, true, {}),
            (ApplyReport{.deployed = 3, .removed = 1, .skipped = 0, .errors = {}}));
  EXPECT_TRUE(agentHolds("cline", "a"));
}

TEST_F(PresetsTest, OneFailureStopsNothingAndNamesItsPair) {
  agentHas("cursor", "a", {{"mine", "precious"}});
  fs::remove_all(paths.skills() / "b");
  const Preset preset = presetOf("p", {a, b});
  const ApplyReport report = apply(preset);
  EXPECT_EQ(report.deployed, 2);
  ASSERT_EQ(report.errors.size(), 4U);
  EXPECT_TRUE(report.errors[0].starts_with("a → Cursor: Refusing to replace ")) << report.errors[0];
  EXPECT_TRUE(report.errors[1].starts_with("b → ")) << report.errors[1];
  EXPECT_EQ(read(placeOf("cursor", "a") / "mine"), "precious");
  EXPECT_EQ(engine().activePresetId(), preset.id);
  EXPECT_THAT(errorOf([&] { engine().applyPreset("gone", true, {}); }), IsError(Kind::notFound, "Preset not found"));
}

TEST_F(PresetsTest, MembersThatCannotBeDeployedWantNothing) {
  const Preset preset = presetOf("p", {a, b});
  engine().setSkillEnabled(a, false);
  engine().setToolEnabled("cline", false);
  engine().setToolOrder({"claude_code"});
  EXPECT_EQ(engine().desiredPairs(preset), (std::vector<SkillToolPair>{{b, "claude_code"}, {b, "cursor"}}))
      << "agents in display order";
  EXPECT_EQ(apply(preset).deployed, 2);
  EXPECT_TRUE(activation(preset).isComplete());
  engine().removeSkill(b, true);
  EXPECT_EQ(activation(preset), (PresetActivation{0, 0}));
  EXPECT_EQ(engine().presetActivations().at(preset.id), (PresetActivation{0, 0}));
}

TEST_F(PresetsTest, TheActivePresetFollowsTheHandAndItsSwitchesActAtOnce) {
  const Preset preset = presetOf("p", {a});
  apply(preset);
  EXPECT_FALSE(engine().setPresetSkillTool(preset.id, a, "cursor", false));
  EXPECT_FALSE(agentHolds("cursor", "a"));
  EXPECT_EQ(engine().setPresetSkillTool(preset.id, a, "cursor", true)->tool, "cursor");
  EXPECT_TRUE(agentHolds("cursor", "a"));

  engine().undeploy({a}, {"cline", "cursor"}, {});
  EXPECT_EQ(activation(preset), (PresetActivation{1, 1}));
  engine().deploy(a, "cline", false);
  EXPECT_EQ(activation(preset), (PresetActivation{2, 2}));
  agentHas("cursor", "a");
  EXPECT_THAT(errorOf([&] { engine().setPresetSkillTool(preset.id, a, "cursor", true); }),
              IsError(Kind::refused, "Refusing to replace"));
  EXPECT_EQ(activation(preset), (PresetActivation{2, 3})) << "the wish is noted";

  const Preset idle = presetOf("idle", {a});
  EXPECT_FALSE(engine().setPresetSkillTool(idle.id, a, "cline", false));
  EXPECT_TRUE(agentHolds("cline", "a")) << "only the active preset acts";
  engine().deletePreset(preset.id);
  EXPECT_EQ(engine().activePresetId(), std::nullopt);
  EXPECT_TRUE(agentHolds("cline", "a")) << "deployments outlive their preset";
}

TEST_F(PresetsTest, DeployingByHandWhatStandsThereAlreadyIsAWishAsWell) {
  const Preset preset = presetOf("p", {a});
  apply(preset);
  sql("INSERT INTO scenario_skill_tools VALUES ('" + preset.id + "', '" + a + "', 'cursor', 0, 1)");
  EXPECT_EQ(engine().deploy({a}, {"cursor"}, false, {}).untouched, 1U);
  EXPECT_TRUE(engine().preset(preset.id).isToolEnabled(a, "cursor"));
}

TEST_F(PresetsTest, AStopWhileOthersAreTakenOutChangesNoActivePreset) {
  Texts ids;
  for (int i = 0; i < 20; ++i) ids.push_back(installed("s" + std::to_string(i)));
  const Preset first = presetOf("first", ids);
  apply(first);
  const Preset second = presetOf("second", {a});
  for (const bool deactivates : {false, true}) {
    std::stop_source stop;
    const OperationContext context{stop.get_token(), [&](const Progress&) { stop.request_stop(); }};
    const ApplyReport report =
        deactivates ? engine().deactivatePreset(first.id, context) : engine().applyPreset(second.id, true, context);
    EXPECT_EQ(report.removed, 1);
    EXPECT_EQ(engine().activePresetId(), first.id);
    EXPECT_FALSE(agentHolds("cursor", "a"));
  }
  EXPECT_EQ(apply(first), (ApplyReport{.deployed = 2, .removed = 0, .skipped = 58, .errors = {}}));
}

TEST_F(PresetsTest, TwoProcessesThatApplyAtOnceAgreeWithTheDisk) {
  const Preset first = presetOf("first", {a});
  const Preset second = presetOf("second", {b});
  inProcesses(4, [&](int number) {
    const auto report = reopen().applyPreset(number % 2 == 0 ? first.id : second.id, true, {});
    EXPECT_TRUE(report.errors.empty());
  });
  reopen();
  const bool firstWon = engine().activePresetId() == first.id;
  EXPECT_TRUE(activation(firstWon ? first : second).isComplete());
  for (const auto* agent : {"cursor", "claude_code", "cline"}) {
    EXPECT_EQ(agentHolds(agent, "a"), firstWon);
    EXPECT_EQ(agentHolds(agent, "b"), !firstWon);
  }
  EXPECT_EQ(engine().repairDeployments({}).skipped, 3);
}

}  // namespace
}  // namespace orvanta
