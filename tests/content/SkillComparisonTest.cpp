#include "content/SkillComparison.h"

#include "foundations/Text.h"
#include "sources/UnifiedDiff.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class SkillComparisonTest : public Sandbox {
 protected:
  [[nodiscard]] std::vector<SkillFileChange> changes() const { return compareSkills(before, after); }

  const Path before =
      folder(root / "before", {{"SKILL.md", "one\ntwo\n"}, {"gone", "1"}, {"same", "s"}, {"tool", "t"}});
  const Path after = folder(root / "after", {{"SKILL.md", "one\n2\n"}, {"same", "s"}, {"tool", "t"}, {"z/new", "n"}});
};

TEST_F(SkillComparisonTest, FilesAreToldApartByContentModeAndKind) {
  fs::permissions(after / "tool", fs::perms::owner_exec, fs::perm_options::add);
  fs::create_symlink("same", before / "link");
  fs::create_symlink("tool", after / "link");
  write(after / ".DS_Store", "not part of a skill");
  std::string found;
  for (const auto& change : changes()) {
    found += change.path + (change.isAdded() ? "+" : change.isRemoved() ? "-" : "~") + " ";
  }
  EXPECT_EQ(found, "SKILL.md~ gone- link~ tool~ z/new+ ");
  EXPECT_EQ(compareSkills(root / "nothing", after).size(), 5U) << "what is not there is empty";
  EXPECT_THAT(findingsIn(changes()), ElementsAre("link is a link to tool", "tool is now executable"));
}

TEST_F(SkillComparisonTest, WhatNobodySeesIsPointedOut) {
  write(after / "SKILL.md", "\uFEFFfine\nnot \u202Efine\nnor\u200B this\n");
  write(after / "emoji", "\U0001F468\u200D\U0001F469 \u2764\uFE0F");
  write(after / "na\u202Eme", "x", 0755);
  EXPECT_THAT(findingsIn(changes()),
              ElementsAre("SKILL.md holds characters that nobody sees: U+202E in line 2, U+200B in line 3",
                          "The name of na<U+202E>me holds characters that are not shown",
                          "na<U+202E>me is new and executable"));
  EXPECT_EQ(Text::revealed("a\tb\x1b[31m\u2066\xff\U000E0041"), "a\tb<U+001B>[31m<U+2066>\uFFFD<U+E0041>");
}

TEST_F(SkillComparisonTest, TextsAreComparedLineByLine) {
  write(after / "binary", std::string("\0\1", 2));
  write(after / "huge", std::string(2 << 20, 'x'));
  write(after / "-n", "begins with a hyphen\n");
  // What the user's configuration would make of it must not reach a program of theirs.
  write(root / "gitconfig",
        "[diff]\n\texternal = false\n\torderFile = nothing\n\tcontext = 0\n[core]\n\tpager = false\n");
  ::setenv("GIT_CONFIG_GLOBAL", (root / "gitconfig").c_str(), 1);
  const UnifiedDiff diff = unifiedDiff(changes(), {.temp = user.temp}, {});
  EXPECT_THAT(diff.text, AllOf(HasSubstr("--- a/SKILL.md\n+++ b/SKILL.md\n"), HasSubstr("-two\n+2\n"),
                               HasSubstr("+begins with a hyphen"), Not(HasSubstr("xxx"))));
  EXPECT_THAT(diff.omitted, ElementsAre("binary", "huge"));
  EXPECT_FALSE(diff.isCut);
  EXPECT_TRUE(fs::is_empty(user.temp));
  EXPECT_THAT(unifiedDiff({}, {.temp = user.temp}, {}).text, IsEmpty());
}

}  // namespace
}  // namespace orvanta
