// Skills that web sites publish, by the words of the command line alone.

#include "tests/e2e/Program.h"
#include "tests/support/WebServer.h"

namespace orvanta {

using testing::AllOf;
using testing::HasSubstr;

class Sites : public Program {
 protected:
  Sites() {
    environment["SSL_CERT_FILE"] = certificate.certificate;
    agentInstalled("cursor");
    server.serve("/.well-known/skills/index.json", R"({"skills":[
        {"name":"pdf","description":"Reads PDFs","files":["SKILL.md","run.sh"]},
        {"name":"lint","skill-md":"---\nname: lint\n---\n"},
        {"name":"plugin","type":"plugin","url":"x"}]})");
    server.serve("/.well-known/skills/pdf/SKILL.md", "---\nname: pdf\n---\n");
    server.serve("/.well-known/skills/pdf/run.sh", "run");
  }

  const Certificate certificate = Certificate::make(root, "site.invalid");
  WebServer server{certificate};
  const std::string domain = "127.0.0.1:" + std::to_string(server.port());
  const std::string site = "well-known:" + domain;
};

TEST_F(Sites, AreSeenChosenFromAndInstalled) {
  EXPECT_THAT(orvanta({"well-known", domain}).out,
              AllOf(HasSubstr("Reads PDFs"), HasSubstr("2 files"), HasSubstr("not installable: its type 'plugin'")));
  const Json entries = json({"well-known", domain});
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[0]["files"], (Json{"SKILL.md", "run.sh"}));
  EXPECT_EQ(entries[2]["installable"], false);

  const auto undecided = orvanta({"install", site});
  EXPECT_EQ(undecided.status, 2);
  EXPECT_THAT(undecided.err, HasSubstr("holds 3 skills"));
  EXPECT_EQ(json({"install", site, "--path", "pdf", "--dry-run"})[0]["action"], "place");
  EXPECT_EQ(json({"list"}).size(), 0U);
  EXPECT_EQ(json({"install", site + "/PDF", "--to", "cursor"})["deployed"].size(), 1U);
  EXPECT_TRUE(agentHolds("cursor", "pdf"));
  EXPECT_THAT(onTerminal({"install", site}, "2\n").out, HasSubstr("1 skill installed"));
  const auto all = orvanta({"install", site, "--all"});
  EXPECT_EQ(all.status, 3);
  EXPECT_THAT(all.err, HasSubstr("plugin: It cannot be installed"));
  EXPECT_THAT(all.out, HasSubstr("2 there already"));
  EXPECT_EQ(json({"list", "--source", "well-known"}).size(), 2U);

  EXPECT_THAT(orvanta({"install", site + "/nope"}).err,
              AllOf(HasSubstr("publishes no skill 'nope'"), HasSubstr("orvanta well-known " + domain)));
  EXPECT_EQ(orvanta({"install", site, "--all", "--name", "x"}).status, 2);
  EXPECT_EQ(orvanta({"install", site + "/pdf", "--path", "pdf"}).status, 2);
  EXPECT_THAT(orvanta({"well-known", "https://" + domain}).err, HasSubstr("Enter a bare domain"));
  EXPECT_THAT(orvanta({"-v", "well-known", domain}).err, HasSubstr("/.well-known/agent-skills/index.json → 404"));
}

}  // namespace orvanta
