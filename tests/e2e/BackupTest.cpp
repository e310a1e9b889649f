// The backup, by the words of the command line alone.

#include "files/FS.h"
#include "tests/e2e/Program.h"
#include "tests/support/GitServer.h"

namespace orvanta {

using testing::HasSubstr;

class Backups : public Program {
 protected:
  Backups() {
    environment["GIT_CONFIG_GLOBAL"] = server.configuration();
    environment["GIT_CONFIG_NOSYSTEM"] = "1";
    server.openForPushing("mine");
  }

  GitServer server{root / "server"};
};

TEST_F(Backups, AreMadeSentBroughtBackAndAskedAbout) {
  EXPECT_THAT(orvanta({"backup", "status"}).out, HasSubstr("orvanta backup init"));
  const auto early = orvanta({"backup", "now"});
  EXPECT_NE(early.status, 0);
  EXPECT_THAT(early.err, HasSubstr("Backup is not initialized"));
  json({"install", givenSkill("pdf").string()});
  EXPECT_EQ(json({"backup", "init"})["isRepository"], true);
  EXPECT_THAT(orvanta({"backup", "now"}).out, HasSubstr("Nothing has changed"));
  EXPECT_NE(orvanta({"backup", "push"}).status, 0);
  EXPECT_THAT(orvanta({"backup", "remote"}).out, HasSubstr("There is no remote."));
  EXPECT_EQ(json({"backup", "remote", server.url("mine")})["remoteURL"], server.url("mine"));
  EXPECT_EQ(orvanta({"backup", "push"}).status, 0);
  write(paths.skills() / "pdf" / "file", "x");
  EXPECT_THAT(orvanta({"backup", "status"}).out, HasSubstr("1 change not saved"));
  EXPECT_THAT(orvanta({"backup", "now", "-m", "with a file"}).out, HasSubstr("with a file"));
  EXPECT_THAT(orvanta({"backup", "status"}).out, HasSubstr("1 to push"));
  EXPECT_THAT(orvanta({"status"}).out, HasSubstr("to push"));

  const Json history = json({"backup", "history"});
  ASSERT_EQ(history.size(), 2U);
  EXPECT_EQ(history[0]["message"], "with a file");
  const std::string first = history[1]["sha"];
  const auto unasked = orvanta({"backup", "restore", first});
  EXPECT_EQ(unasked.status, 2) << "nobody was there to agree to what is lost";
  EXPECT_TRUE(FS::exists(paths.skills() / "pdf" / "file"));
  EXPECT_THAT(orvanta({"backup", "restore", first, "--dry-run"}).out, HasSubstr("pdf"));
  EXPECT_THAT(orvanta({"backup", "restore", first.substr(0, 8), "--yes"}).out, HasSubstr("Back at the snapshot"));
  EXPECT_FALSE(FS::exists(paths.skills() / "pdf" / "file"));
  EXPECT_EQ(orvanta({"backup", "push"}).status, 0);

  environment["ORVANTA_HOME"] = (root / "second").string();
  EXPECT_EQ(orvanta({"backup", "clone", "/nowhere"}).status, 1);
  EXPECT_EQ(json({"backup", "clone", server.url("mine")})["deployed"], 1);
  EXPECT_NE(orvanta({"backup", "clone", server.url("mine")}).status, 0) << "it is not empty any more";
  EXPECT_THAT(orvanta({"backup", "status"}).out, HasSubstr("all saved"));
  EXPECT_THAT(orvanta({"backup", "pull"}).out, HasSubstr("nothing new"));
  EXPECT_NE(json({"backup", "auto", "on"}), Json());
  EXPECT_THAT(orvanta({"backup", "status"}).out, HasSubstr("on"));
}

}  // namespace orvanta
