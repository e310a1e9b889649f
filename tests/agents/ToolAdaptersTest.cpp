#include "agents/ToolAdapters.h"

#include <algorithm>
#include <map>
#include <set>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

Texts keysOf(const std::vector<ToolAdapter>& adapters) {
  Texts keys;
  for (const auto& adapter : adapters) keys.push_back(adapter.key);
  return keys;
}

class ToolAdaptersTest : public Sandbox {
 protected:
  static ToolAdapter agent(const std::string& key, const ToolOverrides& overrides = {}) {
    return ToolAdapters::find(key, overrides).value();
  }

  // A configuration folder elsewhere than below home, as on some systems.
  const UserFolders elsewhere{home, root / "config", root / "temp"};
};

TEST_F(ToolAdaptersTest, TheTableIsWholeAndSharesFoldersOnlyOnPurpose) {
  const auto& builtin = ToolAdapters::builtin();
  EXPECT_EQ(builtin.size(), 54U);
  EXPECT_EQ(ToolAdapters::all({}), builtin);
  std::set<std::string> keys;
  std::map<std::string, Texts> byFolder;
  for (const auto& adapter : builtin) {
    EXPECT_TRUE(keys.insert(adapter.key).second) << adapter.key;
    EXPECT_EQ(adapter.recursiveScan, adapter.key == "hermes");
    for (const auto& folder :
         {adapter.relativeSkillsDir, adapter.relativeDetectDir, adapter.projectRelativeSkillsDir()}) {
      EXPECT_TRUE(folder.starts_with(".") && !folder.starts_with("..") && !folder.ends_with("/")) << folder;
    }
    byFolder[adapter.relativeSkillsDir].push_back(adapter.key);
  }
  std::erase_if(byFolder, [](const auto& entry) { return entry.second.size() == 1; });
  EXPECT_EQ(byFolder, (std::map<std::string, Texts>{{".agents/skills", {"cline", "warp"}},
                                                    {".config/agents/skills", {"amp", "replit"}}}));
  EXPECT_EQ(agent("cursor").projectRelativeSkillsDir(), ".cursor/skills");
  EXPECT_EQ(agent("opencode").projectRelativeSkillsDir(), ".opencode/skills");
  EXPECT_EQ(std::count_if(builtin.begin(), builtin.end(), [](auto& a) { return a.category == ToolCategory::lobster; }),
            6);
}

TEST_F(ToolAdaptersTest, AnAgentsFolderIsFoundInEitherPlace) {
  EXPECT_EQ(agent("opencode").skillsDir(elsewhere), home / ".config/opencode/skills");
  EXPECT_FALSE(agent("opencode").isInstalled(elsewhere));
  fs::create_directories(root / "config/opencode/skills");
  EXPECT_EQ(agent("opencode").skillsDir(elsewhere), root / "config/opencode/skills");
  EXPECT_TRUE(agent("opencode").isInstalled(elsewhere));
  fs::create_directories(home / ".config/opencode/skills");
  EXPECT_EQ(agent("opencode").skillsDir(elsewhere), home / ".config/opencode/skills") << "home comes first";
}

TEST_F(ToolAdaptersTest, WhatTheUserPointedAtCountsAsInstalled) {
  const ToolOverrides overrides{.pathOverrides = {{"cursor", "~/my/../skills/"}},
                                .projectPathOverrides = {{"cursor", "c/skills"}},
                                .customTools = {{"mine", "Mine", "/no/such", "m/skills", ToolCategory::lobster}},
                                .disabled = {"mine"},
                                .order = {}};
  EXPECT_EQ(agent("cursor", overrides).skillsDir(user), home / "skills");
  EXPECT_EQ(agent("cursor", overrides).projectRelativeSkillsDir(), "c/skills");
  EXPECT_TRUE(agent("mine", overrides).isInstalled(user));
  EXPECT_EQ(agent("mine", overrides).skillsDir(user), "/no/such");
  EXPECT_EQ(keysOf(ToolAdapters::active(overrides, user)), Texts{"cursor"}) << "switched off, and the rest not there";
  EXPECT_FALSE(ToolAdapters::find("Cursor", overrides));
}

TEST_F(ToolAdaptersTest, TheUsersOrderComesFirstAndTheRestKeepsItsOwn) {
  const ToolOverrides overrides{
      .pathOverrides = {},
      .projectPathOverrides = {},
      .customTools = {{"b", "B", "/b", {}, ToolCategory::coding}, {"a", "A", "/a", {}, ToolCategory::coding}},
      .disabled = {},
      .order = {"codex", "a", "nobody", "codex"}};
  Texts expected = keysOf(ToolAdapters::builtin());
  std::erase(expected, "codex");
  expected.insert(expected.begin(), {"codex", "a"});
  expected.push_back("b");
  EXPECT_EQ(keysOf(ToolAdapters::all(overrides)), expected);
}

TEST_F(ToolAdaptersTest, ExtraFoldersAreSearchedOnceAndOnlyWhereTheyExist) {
  const auto codex = agent("codex");
  EXPECT_EQ(codex.allScanDirs(user), std::vector{home / ".codex/skills"});
  fs::create_directories(home / ".agents/skills");
  EXPECT_EQ(codex.allScanDirs(user), (std::vector{home / ".codex/skills", home / ".agents/skills"}));
  const auto moved = agent("codex", {.pathOverrides = {{"codex", "~/.agents/skills"}},
                                     .projectPathOverrides = {},
                                     .customTools = {},
                                     .disabled = {},
                                     .order = {}});
  EXPECT_EQ(moved.allScanDirs(user), std::vector{home / ".agents/skills"});
}

}  // namespace
}  // namespace orvanta
