#include "foundations/Models.h"

#include <gtest/gtest.h>

#include "foundations/Clock.h"
#include "foundations/ModelsJSON.h"

namespace orvanta {
namespace {

// The values in the order of their enumeration, as databases and settings hold them.
template <typename Enum, typename Parse>
void expectStoredAs(const std::vector<std::string>& stored, Parse parse) {
  for (std::size_t i = 0; i < stored.size(); ++i) {
    EXPECT_EQ(rawValue(static_cast<Enum>(i)), stored[i]);
    EXPECT_EQ(parse(stored[i]), static_cast<Enum>(i)) << stored[i];
  }
  EXPECT_EQ(parse("imported"), std::nullopt);
  EXPECT_EQ(parse(""), std::nullopt);
}

TEST(Models, WhatIsStoredIsSpelledAsItAlwaysWas) {
  expectStoredAs<SourceType>({"local", "import", "git", "plazza", "well-known"}, parseSourceType);
  expectStoredAs<UpdateStatus>(
      {"unknown", "checking", "updating", "up_to_date", "available", "error", "local_only", "source_missing"},
      parseUpdateStatus);
  expectStoredAs<SyncMode>({"symlink", "copy"}, parseSyncMode);
  expectStoredAs<ToolCategory>({"coding", "lobster"}, parseToolCategory);
  expectStoredAs<WorkspaceType>({"project", "linked"}, parseWorkspaceType);
  EXPECT_EQ(rawValue(AgentSkillEntry::Kind::unmanagedInLibrary), "unmanagedInLibrary");
}

TEST(Models, OnlyHealthyTargetsCountAsDeployed) {
  SkillSummary summary;
  for (const auto& [tool, status] : {std::pair{"a", "ok"}, {"b", "error"}, {"c", "disabled"}, {"a", "ok"}}) {
    SkillTarget target;
    target.tool = tool;
    target.status = status;
    summary.targets.push_back(target);
  }
  EXPECT_EQ(summary.deployedTools(), (std::vector<std::string>{"a", "a"}));
}

TEST(Models, AnAgentIsWantedUnlessItWasSwitchedOff) {
  Preset preset;
  EXPECT_TRUE(preset.isToolEnabled("s", "cursor"));
  preset.toolToggles["s"]["cursor"] = false;
  EXPECT_FALSE(preset.isToolEnabled("s", "cursor"));
  EXPECT_TRUE(preset.isToolEnabled("s", "codex"));
  EXPECT_TRUE(preset.isToolEnabled("other", "cursor"));
}

TEST(Models, ACustomAgentNeedsOnlyItsThreeMainFields) {
  const auto decode = [](const char* text) { return Json::parse(text).get<CustomToolDefinition>(); };
  const CustomToolDefinition plain{"k", "Name", "~/s", std::nullopt, ToolCategory::coding};
  EXPECT_EQ(decode(R"({"key":"k","display_name":"Name","skills_dir":"~/s"})"), plain);
  EXPECT_EQ(decode(R"({"key":"k","display_name":"Name","skills_dir":"~/s","category":null,
                       "project_relative_skills_dir":null})"),
            plain);
  EXPECT_THROW(decode(R"({"key":"k","display_name":"Name"})"), Json::exception);

  const CustomToolDefinition full{"k", "Name", "~/s", ".k/s", ToolCategory::lobster};
  EXPECT_EQ(Json(full).get<CustomToolDefinition>(), full);
}

TEST(Models, JSONIsValidWhateverBytesATextHolds) {
  SkillFileEntry entry;
  entry.relativePath = "caf\xE9.md";
  EXPECT_EQ(Json::parse(jsonText(Json(entry))).at("relativePath"), "caf\uFFFD.md");
}

TEST(Clock, MillisecondsAreRoundedHalvesAwayFromZero) {
  EXPECT_EQ(millisFromSeconds(0.0005), 1);
  EXPECT_EQ(millisFromSeconds(-0.0005), -1);
  EXPECT_EQ(millisFromSeconds(1.0004), 1000);
  EXPECT_DEATH(millisFromSeconds(1e30), "");
  EXPECT_EQ(iso8601(1'769'860'800'999), "2026-01-31T12:00:00Z");
  EXPECT_EQ(iso8601(-1), "1969-12-31T23:59:59Z");
}

}  // namespace
}  // namespace orvanta
