// The community directory as the engine offers it: what is kept of its answers, and listed skills in the library.

#include <atomic>

#include "files/FS.h"
#include "foundations/ModelsJSON.h"
#include "tests/support/GitServer.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WebServer.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Kind = SkillsError::Kind;
using testing::IsEmpty;
using testing::SizeIs;

class MarketTest : public Sandbox {
 protected:
  MarketTest() { engine().setSetting("plazza_url", directory.url("/a")); }

  static Json skillNamed(const std::string& name) { return {{"source", "o/r"}, {"skillId", name}, {"name", name}}; }

  // A directory whose lists have one more skill whenever it is asked, beginning with none.
  void serve(WebServer& server, const std::string& path) {
    const auto answer = [this](const auto& request, auto& response) {
      const bool isSearch = request.has_param("q");
      Json list = Json::array();
      for (int i = 0; i < requests; ++i) list.push_back(skillNamed(std::to_string(i)));
      ++requests;
      const std::string data = isSearch ? "" : R"(<script id="__NEXT_DATA__" type="application/json">)";
      response.set_content(
          isSearch ? list.dump() : data + Json{{"props", {{"pageProps", {{"skills", list}}}}}}.dump() + "</script>",
          "text/html");
    };
    server.on(path + "/api/search", answer);
    server.on(path + "/(trending|hot|)", answer);
  }

  std::size_t top(LeaderboardKind kind, bool refresh = false) { return engine().leaderboard(kind, refresh, {}).size(); }
  std::size_t found(const std::string& query, std::size_t limit = 100) {
    return engine().searchMarket(query, limit, {}).size();
  }
  void age(int seconds) const {
    sql("UPDATE plazza_cache SET fetched_at = fetched_at - " + std::to_string(seconds * 1000));
  }

  std::atomic<int> requests = 0;
  WebServer directory;
};

TEST_F(MarketTest, AnswersAreKeptForAWhile) {
  serve(directory, "/a");
  serve(directory, "/b");
  constexpr auto hot = LeaderboardKind::hot;
  EXPECT_EQ(top(hot), 0U);
  EXPECT_EQ(top(hot), 0U) << "that there is nothing is an answer";
  EXPECT_EQ(top(LeaderboardKind::allTime), 1U) << "each list has its own";
  EXPECT_EQ(top(hot, true), 2U);
  reopen();
  age(3590);
  EXPECT_EQ(top(hot), 2U);
  age(20);
  EXPECT_EQ(top(hot), 3U);
  age(-60);
  EXPECT_EQ(top(hot), 4U) << "the clock was set back";

  EXPECT_EQ(found(" pdf ", 2), 2U);
  EXPECT_EQ(found("pdf"), 5U) << "a short answer is cut from the long one that is kept";
  EXPECT_EQ(found("pdf", 3), 3U);
  EXPECT_EQ(found("docx"), 6U);
  age(590);
  EXPECT_EQ(found("pdf"), 5U);
  age(20);
  EXPECT_EQ(found("pdf"), 7U);
  EXPECT_THAT(errorOf([&] { found(" \n"); }), IsError(Kind::invalidInput, "what to search for"));

  engine().setSetting("plazza_url", directory.url("/b"));
  EXPECT_EQ(found("pdf"), 8U) << "another directory's answers are its own";
  engine().setSetting("plazza_url", directory.url("/a/"));
  EXPECT_EQ(found("pdf"), 7U);
  engine().clearMarketCache();
  EXPECT_EQ(found("pdf"), 9U);
  EXPECT_EQ(requests, 10);
}

TEST_F(MarketTest, OfTheUsualDirectoryTheKeysAreFixed) {
  engine().setSetting("plazza_url", std::nullopt);
  const std::string row =
      Json::array({{{"id", "i"}, {"skillId", "s"}, {"name", "n"}, {"source", "o/r"}, {"installs", 1}}}).dump();
  sql("INSERT INTO plazza_cache VALUES ('leaderboard:all', '" + row +
      "', strftime('%s') * 1000),"
      "('search:pdf', '" +
      row + "', strftime('%s') * 1000)");
  EXPECT_EQ(top(LeaderboardKind::allTime), 1U);
  EXPECT_EQ(found("pdf"), 1U);
}

TEST_F(MarketTest, ABrokenCacheStopsNobody) {
  serve(directory, "/a");
  requests = 1;
  EXPECT_EQ(found("pdf"), 1U);
  for (const std::string& data : {"no JSON"s, "{}"s, "[1]"s, "[{\"id\":1}]"s, ""s, std::string(100'000, '[')}) {
    sql("UPDATE plazza_cache SET data = '" + data + "'");
    const auto before = requests.load();
    EXPECT_EQ(found("pdf"), static_cast<std::size_t>(before)) << data.substr(0, 20);
    EXPECT_EQ(requests, before + 1);
  }
  sql("CREATE TRIGGER full BEFORE INSERT ON plazza_cache BEGIN SELECT RAISE(ABORT, 'full'); END");
  EXPECT_THAT(engine().searchMarket("docx", 100, {}), SizeIs(8));
}

class ListedSkillTest : public Sandbox {
 protected:
  static std::string skill(const std::string& name) { return "---\nname: " + name + "\ndescription: A\n---\n"; }
  SkillRecord install(const std::string& source, const std::string& id) {
    return engine().installFromPlazza(source, id, {}, {}).record;
  }

  GitServer server{root / "server"};
};

TEST_F(ListedSkillTest, ArrivesWithWhereItCameFrom) {
  const std::string revision = server.commit("o/r", {{"SKILL.md", skill("all")},
                                                     {"skills/pdf/SKILL.md", skill("pdf")},
                                                     {"skills/pdf/tool.sh", "run"},
                                                     {"more/docx/SKILL.md", skill("docx")}});
  fs::create_symlink("/etc/passwd", server.folder("o/r") / "skills" / "pdf" / "stolen");
  server.commit("o/r", {{"README", "x"}});
  engine();
  const std::string before = everythingAsText();
  const Plan plan = engine().planInstallFromPlazza("o/r", "pdf", "forms", {});
  ASSERT_THAT(plan, SizeIs(1));
  EXPECT_EQ(plan[0].skillName, "forms");
  EXPECT_EQ(everythingAsText(), before) << "looking changes nothing";

  const SkillRecord pdf = install("o/r", "pdf");
  EXPECT_EQ(pdf.sourceType, SourceType::plazza);
  EXPECT_EQ(pdf.sourceRef, "o/r/pdf");
  EXPECT_EQ(pdf.sourceRefResolved, "https://github.com/o/r.git");
  EXPECT_EQ(pdf.sourceSubpath, "skills/pdf") << "though the repository is a skill itself";
  EXPECT_NE(pdf.sourceRevision, revision);
  EXPECT_EQ(pdf.sourceRevision, server.git("o/r", {"rev-parse", "HEAD"}).substr(0, 40));
  EXPECT_EQ(read(paths.skills() / "pdf" / "tool.sh"), "run");
  EXPECT_FALSE(FS::exists(paths.skills() / "pdf" / "stolen"));
  EXPECT_EQ(engine().auditEntries(1, 0).front().action, "install_plazza");
  EXPECT_TRUE(engine().previewGit("o/r", {}).skills.back().alreadyInstalled);
  EXPECT_EQ(install("o/r", "pdf").id, pdf.id) << "the library holds it already";
  EXPECT_EQ(install("o/r", "all").sourceSubpath, std::nullopt);
  EXPECT_TRUE(fs::is_empty(user.temp));
}

TEST_F(ListedSkillTest, IsFoundByItsNameToo) {
  server.commit("o/r",
                {{"skill/a/SKILL.md", skill("x")}, {"deep/er/b/SKILL.md", skill("y")}, {"c/SKILL.md", skill("Z z")}});
  EXPECT_EQ(install("o/r", "a").sourceSubpath, "skill/a");
  EXPECT_EQ(install("o/r", "b").sourceSubpath, "deep/er/b");
  EXPECT_EQ(install("o/r", "Z z").sourceSubpath, "c");
  EXPECT_THAT(errorOf([&] { install("o/r", "gone"); }), IsError(Kind::notFound, "Skill 'gone' not found in o/r"));
  EXPECT_THAT(errorOf([&] { install("o/missing", "a"); }).kind(), Kind::git);
}

TEST_F(ListedSkillTest, IsNothingButARepositoryAndAName) {
  for (const std::string source : {"", "o", "o/", "/r", "o/r/s", "-o/r", "o/-r", "o/..", "../r", ".o/r", "o/r\n",
                                   "o/r r", "https://h/r", "o/r;x", "o/\u00e9", "git@h:o/r"}) {
    EXPECT_THAT(errorOf([&] { install(source, "a"); }), IsError(Kind::invalidInput, "Unexpected Plazza source: "));
  }
  for (const std::string id : {"", " ", ".", "..", "../a", "a/b", "a\\b", "-a", "a\nb", "\xff"}) {
    EXPECT_THAT(errorOf([&] { install("o/r", id); }), IsError(Kind::invalidInput, "cannot be the name of a skill"));
  }
  EXPECT_THAT(server.requests(), IsEmpty());
}

}  // namespace
}  // namespace orvanta
