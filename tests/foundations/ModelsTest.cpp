#include "foundations/Models.h"

#include <gtest/gtest.h>

#include "foundations/Clock.h"
#include "foundations/ModelsJSON.h"

namespace orvanta {
namespace {

template <typename Parse>
void expectSpelled(const std::vector<std::string>& stored, Parse parse) {
  for (const auto& text : stored) EXPECT_EQ(rawValue(parse(text).value()), text);
  EXPECT_EQ(parse("imported"), std::nullopt);
}

TEST(Models, WhatIsStoredIsSpelledAsItAlwaysWas) {
  expectSpelled({"local", "import", "git", "plazza", "well-known"}, parseSourceType);
  expectSpelled({"unknown", "checking", "updating", "up_to_date", "available", "error", "local_only", "source_missing"},
                parseUpdateStatus);
  expectSpelled({"symlink", "copy"}, parseSyncMode);
  expectSpelled({"coding", "lobster"}, parseToolCategory);
  expectSpelled({"project", "linked"}, parseWorkspaceType);
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
