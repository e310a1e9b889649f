// The community directory: what is read of its answers, and what a hostile answer cannot do.

#include "sources/PlazzaAPI.h"

#include <chrono>

#include <gmock/gmock.h>

#include "foundations/ModelsJSON.h"
#include "tests/support/Loopback.h"
#include "tests/support/Sandbox.h"
#include "tests/support/WebServer.h"

namespace orvanta {
namespace {

using Kind = SkillsError::Kind;
using Skills = std::vector<PlazzaSkill>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const PlazzaSkill kPdf{"o/r/pdf", "pdf", "PDF", "o/r", 7};

std::string repeated(std::string_view text, std::size_t bytes) {
  std::string result;
  while (result.size() < bytes) result += text;
  return result;
}

std::string withData(const std::string& json) {
  return R"(<html><script id="__NEXT_DATA__" type="application/json">)" + json + "</script></html>";
}

TEST(PlazzaAnswers, AreReadWithWhateverIsUsableInThem) {
  const std::string list =
      R"([{"source":"o/r","skillId":"pdf","name":"PDF","installs":7},
          {"id":"x","source":"o/r","skill_id":"b","installs":"12"},
          {"id":3,"source":"o/r","skillId":"c","name":" ","installs":-5},
          {"source":"o/r","skillId":"d","name":"D","installs":2.9},
          {"source":"o/r","skillId":"e","name":"E","installs":99999999999999999999},
          {"source":"o/r","skillId":"f","name":"F","installs":"many"},
          {"source":"o/r","name":"no id"}, {"skillId":"no source"}, {"source":1,"skillId":"a"}, [], null, "text"])";
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  const Skills expected{kPdf,
                        {"x", "b", "b", "o/r", 12},
                        {"o/r/c", "c", "c", "o/r", 0},
                        {"o/r/d", "d", "D", "o/r", 2},
                        {"o/r/e", "e", "E", "o/r", most},
                        {"o/r/f", "f", "F", "o/r", 0}};
  EXPECT_EQ(PlazzaAPI::parseSearchJSON(list), expected);
  for (const auto* key : {"skills", "results", "items"}) {
    EXPECT_EQ(PlazzaAPI::parseSearchJSON("{\"total\":1,\"" + std::string(key) + "\":" + list + "}"), expected) << key;
  }
  EXPECT_EQ(Json(expected).get<Skills>(), expected) << "as it is kept";
  for (const auto* key : {"initialSkills", "skills", "items"}) {
    EXPECT_EQ(PlazzaAPI::parseLeaderboardHTML(
                  withData("{\"props\":{\"pageProps\":{\"" + std::string(key) + "\":" + list + "}}}")),
              expected);
  }
  EXPECT_EQ(PlazzaAPI::parseSearchJSON("[{\"source\":\"o/r\",\"skillId\":\"\xff\"}]").at(0).name, "\uFFFD");
}

TEST(PlazzaAnswers, ThatAreNoListAreErrorsOfSearchesAndEmptyPages) {
  for (const std::string text : {"", "<html>", "{}", "{\"skills\":3}", "3", "[1,", "{\"skills\":[],}", "null"}) {
    EXPECT_THAT(errorOf([&] { (void)PlazzaAPI::parseSearchJSON(text); }),
                IsError(Kind::network, "something that is no list of skills"));
    EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(text), IsEmpty());
    EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(withData(text)), IsEmpty());
    EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(withData("{\"props\":{\"pageProps\":" + text + "}}")), IsEmpty());
  }
  EXPECT_THAT(PlazzaAPI::parseSearchJSON("[]"), IsEmpty());
}

TEST(PlazzaPages, WithoutEmbeddedDataYieldWhatTheirScriptsHold) {
  const PlazzaSkill forms{"acme/tools/forms", "forms", "", "acme/tools", 1200};
  PlazzaSkill named = forms;
  named.name = "forms";
  const std::string plain =
      R"({"source":"o/r","skillId":"pdf","extra":[1,"x"],"name":"PDF","about":"a, \"b\" \{c\}","installs":7,"z":0})";
  const std::string escaped =
      R"(self.push([1,"{\"source\":\"acme/tools\",\"skill_id\":\"forms\",\"name\":\"\",\"installs\":1200}"]))";
  const std::string foreign =
      R"({"source":"a/b","skillId":"c"},{"name":"n","installs":1}{"source":"a/b","skillId":"c","name":"n","installs":-1})";
  EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML("<script>" + escaped + "</script>" + foreign + plain),
              ElementsAre(named, kPdf));
  EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(withData("{\"props\":{\"pageProps\":{\"skills\":[]}}}") + plain),
              ElementsAre(kPdf))
      << "embedded data without skills is none";

  // One publisher's text does not hide the others.
  const std::string hostile = R"({"source":"o/r",)" + std::string(200, '\\') + "}";
  EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(hostile + hostile + plain), ElementsAre(kPdf));
  const std::string list = repeated(plain, 1 << 20);
  EXPECT_EQ(PlazzaAPI::parseLeaderboardHTML(list).size(), list.size() / plain.size());
}

// Sixteen mebibytes of each. Without limits most of these would take years; with them a second at most, here with room
// for slow machines and sanitizers.
TEST(PlazzaPages, EndSoonHoweverHostileTheyAre) {
  constexpr std::size_t size = std::size_t{16} << 20;
  const std::string begin = R"("source":"a",)";
  const std::string skill = begin + R"("skillId":"b",)";
  const std::string name = skill + R"("name":"c",)";
  for (const auto& page :
       {repeated(begin, size), repeated(skill, size), repeated(name, size), begin + repeated(R"("skillId":"b",)", size),
        skill + repeated(R"("name":"c",)", size), name + repeated(R"("installs":x)", size),
        begin + repeated("\\", size), repeated(begin + std::string(60, '\\') + "{", size), repeated("\"", size),
        repeated("\\", size), repeated(R"("source":")", size), begin + repeated("a", size), repeated("[", size),
        repeated("{\"a\":", size), withData(repeated("[", size)), withData(repeated("{\"props\":", size))}) {
    EXPECT_THAT(PlazzaAPI::parseLeaderboardHTML(page), IsEmpty()) << page.substr(0, 80);
    EXPECT_THAT(errorOf([&] { (void)PlazzaAPI::parseSearchJSON(page); }).kind(), Kind::network);
  }
  const auto deep = [](std::size_t depth) {
    return R"([{"source":"o/r","skillId":"[\"","x":)" + std::string(depth, '[') + std::string(depth, ']') + "}]";
  };
  EXPECT_THAT(PlazzaAPI::parseSearchJSON(deep(60)), testing::SizeIs(1));
  EXPECT_THAT(errorOf([&] { (void)PlazzaAPI::parseSearchJSON(deep(100'000)); }).kind(), Kind::network);
  // Half a million objects, none of them a skill.
  EXPECT_THAT(PlazzaAPI::parseSearchJSON("[" + repeated(R"({"a":0},)", size / 4) + "0]"), IsEmpty());
}

TEST(PlazzaAPITest, AsksAsItIsToldToAndSaysWhatWentWrong) {
  WebServer server;
  const Json answer = Json::array({{{"source", "o/r"}, {"skillId", "pdf"}, {"name", "PDF"}, {"installs", 7}},
                                   {{"source", "o/r"}, {"skillId", "docx"}}});
  server.on("/api/search", [&](const auto& request, auto& response) {
    EXPECT_EQ(request.get_header_value("User-Agent"), "orvanta-macos");
    EXPECT_EQ(request.get_param_value("q"), "a b&c");
    EXPECT_EQ(request.get_param_value("limit"), "1");
    response.set_content(answer.dump(), "application/json");
  });
  for (const std::string page : {"", "trending", "hot"}) {
    const std::string data = R"({"source":"o/r","skillId":")" + page + R"(!","name":"n","installs":1})";
    server.serve("/" + page, "<p>" + data + "</p>", "text/html");
  }
  const auto failing = [](int status) { return [status](const auto&, auto& response) { response.status = status; }; };
  server.on("/down/api/search", failing(503));
  server.on("/down/", failing(404));
  server.serve("/html/api/search", "<html>", "text/html");
  server.serve("/large/", repeated("x", (std::size_t{16} << 20) + 1), "text/html");

  WebProxy proxy(server.port());
  EXPECT_THAT(PlazzaAPI({.proxyURL = proxy.url()}, "http://plazza.invalid//").search("a b&c", 1, {}),
              ElementsAre(kPdf));
  EXPECT_THAT(proxy.requests(), HasSubstr("http://plazza.invalid/api/search?q=a%20b%26c&limit=1 "));

  const auto at = [&](const std::string& path) { return PlazzaAPI({}, server.url(path)); };
  EXPECT_EQ(at("/").fetchLeaderboard(LeaderboardKind::allTime, {}).at(0).skillId, "!");
  EXPECT_EQ(at("/").fetchLeaderboard(LeaderboardKind::trending, {}).at(0).skillId, "trending!");
  EXPECT_EQ(at("/").fetchLeaderboard(LeaderboardKind::hot, {}).at(0).skillId, "hot!");
  EXPECT_THAT(errorOf([&] { (void)at("/down").search("x", 1, {}); }),
              IsError(Kind::network, "Plazza search failed (503). "));
  EXPECT_THAT(errorOf([&] { (void)at("/down").fetchLeaderboard(LeaderboardKind::allTime, {}); }),
              IsError(Kind::network, "Plazza returned an error (404). "));
  EXPECT_THAT(errorOf([&] { (void)at("/html").search("x", 1, {}); }), IsError(Kind::network, "no list of skills"));
  EXPECT_THAT(errorOf([&] { (void)at("/large").fetchLeaderboard(LeaderboardKind::allTime, {}); }),
              IsError(Kind::network, "larger than the limit"));
}

TEST(PlazzaAPITest, KnowsAnAddressOfADirectory) {
  for (const auto* url : {"https://plazza.example", "HTTP://h/", "http://127.0.0.1:80/a/b/"}) {
    EXPECT_TRUE(PlazzaAPI::isBaseURL(url)) << url;
  }
  for (const auto* url : {"", "plazza.example", "ftp://h", "https://", "https:///a", "https://:80", "https://u:p@h",
                          "https://h?q", "https://h#f", "https://h/a b", "https://h/\n", "https://h\\a"}) {
    EXPECT_FALSE(PlazzaAPI::isBaseURL(url)) << url;
  }
}

}  // namespace
}  // namespace orvanta
