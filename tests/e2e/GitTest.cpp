// Installing from Git, by the words of the command line alone.

#include "tests/e2e/Program.h"
#include "tests/support/GitServer.h"

namespace orvanta {

using testing::HasSubstr;

class GitSources : public Program {
 protected:
  GitSources() {
    environment["GIT_CONFIG_GLOBAL"] = server.configuration();
    environment["GIT_CONFIG_NOSYSTEM"] = "1";
    agentInstalled("cursor");
    server.commit("acme/skills", {{"pdf/SKILL.md", "---\nname: pdf\ndescription: Reads PDFs\n---\n"},
                                  {"lint/SKILL.md", "---\nname: lint\n---\n"}});
  }

  GitServer server{root / "server"};
};

TEST_F(GitSources, AreSeenChosenFromAndInstalled) {
  EXPECT_THAT(orvanta({"preview", "acme/skills"}).out, HasSubstr("Reads PDFs"));
  const auto undecided = orvanta({"install", "acme/skills"});
  EXPECT_EQ(undecided.status, 2);
  EXPECT_THAT(undecided.err, HasSubstr("holds 2 skills"));
  EXPECT_EQ(json({"install", "acme/skills", "--all", "--dry-run"}).size(), 2U);
  EXPECT_EQ(json({"list"}).size(), 0U);
  EXPECT_EQ(json({"install", "acme/skills", "--path", "pdf", "--to", "cursor"})["deployed"].size(), 1U);
  EXPECT_THAT(onTerminal({"install", "acme/skills"}, "1\n").out, HasSubstr("1 skill installed"));
  EXPECT_EQ(json({"list", "--source", "git"}).size(), 2U);
  EXPECT_EQ(json({"preview", "https://github.com/acme/skills"})["skills"][0]["alreadyInstalled"], true);

  EXPECT_THAT(orvanta({"install", "acme/skills", "--path", "nope"}).err, HasSubstr("not a skill directory"));
  const auto missing = orvanta({"-v", "install", "acme/missing", "--all"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, HasSubstr("git clone failed"));
  EXPECT_THAT(missing.err, HasSubstr("--depth 1")) << "each command is shown under -v";
  EXPECT_THAT(orvanta({"install", "no such file"}).err, HasSubstr("no address of a Git repository"));
}

}  // namespace orvanta
