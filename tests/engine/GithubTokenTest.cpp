// The way of the GitHub token: from its user into the key store, from there to GitHub, and nowhere else.

#include <sstream>

#include "tests/support/GitServer.h"
#include "tests/support/KeyStoreSession.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

constexpr auto token = "t0ken-of-the-user";
// "x-access-token:" and the token, as the header wants them.
constexpr auto encoded = "eC1hY2Nlc3MtdG9rZW46dDBrZW4tb2YtdGhlLXVzZXI=";
MATCHER(IsFreeOfTheToken, "") { return arg.find(token) == std::string::npos && arg.find(encoded) == std::string::npos; }

class GithubTokenTest : public Sandbox {
 protected:
  GithubTokenTest() {
    session.startBus();
    session.startKeyStore();
  }
  Texts auditedActions() {
    Texts actions;
    for (const auto& entry : engine().auditEntries(100, 0)) {
      if (entry.action.starts_with("github_token")) actions.push_back(entry.action);
    }
    return actions;
  }

  KeyStoreSession session{root};
};

TEST_F(GithubTokenTest, AStoredTokenIsSentToGithubAndShownNowhere) {
  GitServer server(root / "server");
  server.commit("o/r", {{"pdf/SKILL.md", "---\nname: pdf\ndescription: A\n---\n"}});
  server.commit("github.com/r", {{"docx/SKILL.md", "---\nname: docx\ndescription: A\n---\n"}});
  // Without the rewriting of addresses: what git says to GitHub arrives by way of the proxy.
  write(server.configuration(), "[http]\n\tsslCAInfo = " + server.certificate().string() + "\n");
  WebProxy proxy(server.securePort());
  const auto elsewhere = "https://127.0.0.1:" + std::to_string(server.securePort()) + "/github.com/r";

  inAnotherProcess([&] {
    EXPECT_FALSE(SkillsEngine::hasGithubToken());
    EXPECT_TRUE(engine().setGithubToken(std::string(" ") + token + "\n"));
    EXPECT_TRUE(SkillsEngine::hasGithubToken());
    engine().setSetting("proxy_url", proxy.url());
    std::string traced;
    const OperationContext context{.trace = [&](std::string_view line) { traced.append(line).append("\n"); }};
    EXPECT_EQ(engine().installGit("o/r", {}, context).installed.size(), 1U);
    EXPECT_EQ(engine().installGit(elsewhere, {}, context).installed.size(), 1U);
    EXPECT_THAT(traced, AllOf(HasSubstr("https://github.com/o/r.git"), IsFreeOfTheToken()));
    EXPECT_EQ(auditedActions(), Texts{"github_token_set"});
    engine().exportAudit();
  });

  const auto requests = server.requests();
  EXPECT_THAT(requests, HasSubstr("https://github.com/o/r.git/info/refs?service=git-upload-pack"));
  EXPECT_THAT(requests, HasSubstr("/github.com/r/info/refs?service=git-upload-pack"));
  std::istringstream lines(requests);
  for (std::string line; std::getline(lines, line);) {
    const bool isForGithub = line.find(" https://github.com/") != std::string::npos;
    EXPECT_THAT(line, testing::EndsWith(isForGithub ? std::string(" [Basic ") + encoded + "]" : " []"));
  }
  EXPECT_THAT(proxy.requests(), AllOf(HasSubstr("CONNECT github.com:443"), IsFreeOfTheToken()));
  EXPECT_THAT(folderAsText(paths.base()), AllOf(HasSubstr("github_token_set"), IsFreeOfTheToken()));
  EXPECT_THAT(folderAsText(home), IsFreeOfTheToken());
  EXPECT_THAT(folderAsText(user.temp), IsFreeOfTheToken());
}

TEST_F(GithubTokenTest, TheLogTellsOfATokenThatWasClearedAndOfNoOther) {
  inAnotherProcess([&] {
    EXPECT_FALSE(engine().setGithubToken(std::nullopt)) << "there is none";
    EXPECT_EQ(auditedActions(), Texts{});
    engine().setGithubToken(token);
    engine().setGithubToken("another");
    EXPECT_TRUE(engine().setGithubToken(" \t\n"));
    EXPECT_FALSE(SkillsEngine::hasGithubToken());
    EXPECT_EQ(auditedActions(), (Texts{"github_token_cleared", "github_token_set", "github_token_set"}));
  });
}

}  // namespace
}  // namespace orvanta
