#include "content/Scanner.h"

#include <algorithm>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class ScannerTest : public Sandbox {
 protected:
  Texts listed(bool recursive) const {
    Texts names;
    for (const auto& found : Scanner::listSkillDirs(agent, recursive)) names.push_back(found.relativePath);
    return names;
  }
  Texts searched(int maxDepth, const std::set<std::string>& skipNames = {}) const {
    Texts names;
    for (const auto& found : FS::findSkillDirs(agent, maxDepth, skipNames)) {
      names.push_back(found.lexically_relative(agent).string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const Path agent = folder(root / "agent", {{"a file", ""}});
};

TEST_F(ScannerTest, OnlySkillsOfTheFirstLevelAreListedUnlessTheAgentLooksDeeper) {
  for (const auto* path : {"b", "a", "group/c", "1/2/3/4/5/six", "1/2/3/4/5/6/seven"}) skillFolder(agent / path);
  write(agent / "lower" / "skill.md", "");
  EXPECT_EQ(listed(false), (Texts{"a", "b", "lower"}));
  EXPECT_EQ(listed(true), (Texts{"1/2/3/4/5/six", "a", "b", "group/c", "lower"}));
}

TEST_F(ScannerTest, WhatIsNoSkillOfTheUsersIsPassedOver) {
  for (const auto* path : {"node_modules/x", ".git/x", ".hub/x", ".orvanta-stage-1-abc", "outer", "outer/inner"}) {
    skillFolder(agent / path);
  }
  fs::create_directories(agent / "marker is a folder" / "SKILL.md");
  fs::create_symlink("nowhere", agent / "dangling");
  EXPECT_EQ(listed(true), Texts{"outer"});
  EXPECT_EQ(Scanner::listSkillDirs(agent / "absent", true), std::vector<LocalSkillDir>{});
}

TEST_F(ScannerTest, ALinkIsReportedAsALinkAndALoopEndsTheWalk) {
  skillFolder(root / "elsewhere" / "real");
  fs::create_directory_symlink("../elsewhere/real", agent / "linked");
  for (const auto* twice : {"g1", "g2"}) fs::create_directory_symlink(root / "elsewhere", agent / twice);
  fs::create_directory_symlink(agent, root / "elsewhere" / "back");
  const auto found = Scanner::listSkillDirs(agent, true);
  ASSERT_EQ(std::count_if(found.begin(), found.end(), [](const auto& skill) { return skill.isSymlink; }), 1);
  const auto& link = *std::find_if(found.begin(), found.end(), [](const auto& skill) { return skill.isSymlink; });
  EXPECT_EQ(link, (LocalSkillDir{agent / "linked", "linked", true, root / "elsewhere" / "real"}));
  EXPECT_EQ(found.size(), 2U) << "one folder reached by two routes is looked into once";
}

TEST_F(ScannerTest, ASearchFindsEverySkillOnceDownToItsDepth) {
  for (const auto* path : {"", "outer", "outer/inner", "1/2/3/deep", ".git/x"}) skillFolder(agent / path);
  fs::create_directory_symlink(agent, agent / "outer" / "back");
  fs::create_directory_symlink("outer", agent / "again");
  EXPECT_EQ(searched(0), Texts{"."});
  EXPECT_EQ(searched(3, {".git", "again"}), (Texts{".", "outer", "outer/inner"}));
  EXPECT_EQ(searched(4, {"again"}).size(), 5U);
  EXPECT_EQ(searched(4).size(), 5U) << "by whichever name it is reached first";
}

}  // namespace
}  // namespace orvanta
