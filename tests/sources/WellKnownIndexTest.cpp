// Indexes of skills as sites publish them: every form they come in, and what hostile ones must not bring about.

#include "sources/WellKnownIndex.h"

#include <fmt/format.h>

#include "foundations/ModelsJSON.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using Entry = WellKnownIndex::Entry;
using File = WellKnownIndex::File;
using Kind = SkillsError::Kind;
using testing::HasSubstr;

const std::string kBase = "https://example.com/.well-known/agent-skills/index.json";
const std::string kDigest(64, 'a');

WellKnownIndex parsed(const std::string& body) { return WellKnownIndex::parse(body, "example.com", kBase); }

// The one entry of an index in which it has only these members beside its name.
Entry entryWith(const std::string& members) {
  const auto index = parsed(R"([{"name":"pdf",)" + members + "}]");
  return index.entries.size() == 1 ? index.entries[0] : Entry{};
}

TEST(WellKnownIndex, ReadsEveryFormInWhichSitesPublish) {
  const auto index = parsed(R"({"version":1,"skills":[
    {"name":" pdf\u001b[31m ","description":"Reads","files":["SKILL.md",{"path":"a/b.py","digest":"sha256:)" +
                            std::string(64, 'A') + R"("}]},
    {"name":"text","skill-md":"---\nname: text\n---\n"},
    {"name":"path","skill_md":"path/SKILL.md"},
    {"name":"packed","archive":"packed.zip"},
    {"name":"typed","type":"skill-md","url":"/skills/typed","digest":"sha256:)" +
                            kDigest + R"("},
    {"name":"typed too","type":"archive","url":"https://example.com/x?id=1"},
    {"name":"untyped","url":"x.SKILL?v=1"},
    {"name":"either","archive":"a.tar.gz","files":["SKILL.md"]}
  ]})");
  EXPECT_EQ(index.domain, "example.com");
  EXPECT_EQ(index.baseURL, kBase);
  ASSERT_EQ(index.entries.size(), 8U);
  for (const auto& entry : index.entries) EXPECT_EQ(entry.flaw, std::nullopt) << entry.name;
  const auto& pdf = index.entries[0];
  EXPECT_EQ(pdf.name, "pdf [31m");
  EXPECT_EQ(pdf.description, "Reads");
  EXPECT_EQ(pdf.files, (std::vector<File>{{"SKILL.md", {}}, {"a/b.py", kDigest}}));
  EXPECT_TRUE(index.entries[1].hasSkillText());
  EXPECT_FALSE(index.entries[2].hasSkillText());
  EXPECT_EQ(index.entries[2].skillMd, "path/SKILL.md");
  EXPECT_EQ(index.entries[4].skillMd, "/skills/typed");
  EXPECT_EQ(index.entries[4].digest, kDigest);
  using enum Entry::Kind;
  const std::vector<Entry::Kind> kinds{files, skillMd, skillMd, archive, skillMd, archive, archive, files};
  for (std::size_t i = 0; i < kinds.size(); ++i) EXPECT_EQ(index.entries[i].kind(), kinds[i]) << i;
}

TEST(WellKnownIndex, AnEntryWithAFaultSaysSoAndHarmsNoOther) {
  for (const auto& [members, flaw] : std::vector<std::pair<std::string, std::string>>{
           {R"("x":1)", "names no files"},
           {R"("files":[])", "names no files"},
           {R"("files":"SKILL.md")", "are no list"},
           {R"("files":["SKILL.md",7])", "neither a path nor an object"},
           {R"("files":[{"path":7}])", "\"path\" is no text"},
           {R"("skill-md":{})", "\"skill-md\" is no text"},
           {R"("description":[],"skill-md":"a")", "\"description\" is no text"},
           {R"("type":"plugin","url":"x")", "type 'plugin' is unknown"},
           {R"("url":"x")", "says what it is"},
           {R"("archive":"x.tar.gz")", "a .tar.gz archive, which Orvanta cannot unpack yet"},
           {R"("type":"archive","url":"x.TGZ?v=1")", "cannot unpack yet"},
           {R"("archive":"x.zip","digest":"md5:00")", "'md5:00' is none that can be checked"},
           {R"("archive":"x.zip","digest":"sha256:)" + std::string(63, 'a') + "g\"", "can be checked"},
           {R"("files":["SKILL.md"],"digest":"sha256:)" + kDigest + "\"", "belongs to none of its files"},
           {R"("archive":"//evil.example/x.zip")", "leads away"},
           {R"("type":"skill-md","url":"http://example.com/SKILL.md")", "leads away"},
           {R"("skill-md":"https://u:p@example.com/SKILL.md")", "no address of a file"},
           {R"("archive":"x\u0000.zip")", "no address of a file"},
       }) {
    EXPECT_THAT(entryWith(members).flaw.value_or("none"), HasSubstr(flaw)) << members;
  }
  const auto index =
      parsed(R"([7,null,{"name":7},{"name":" .. "},{},{"name":"a","files":7},{"name":"b","skill-md":"x"}])");
  ASSERT_EQ(index.entries.size(), 2U);
  EXPECT_TRUE(index.entries[0].flaw);
  EXPECT_FALSE(index.entries[1].flaw);
}

TEST(WellKnownIndex, NoFileCanBecomeAnythingButAFileOfTheSkill) {
  const auto flawOf = [](const std::vector<std::string>& paths) {
    return entryWith("\"files\":" + Json(paths).dump()).flaw.value_or("none");
  };
  EXPECT_EQ(flawOf({"SKILL.md", ".env", "a/.hidden/b c%2e.txt", "a/é", "A.md", "https%3A"}), "none");
  for (const std::string path : {"../x", "a/../../x", "a/..", "/etc/passwd", "//x", "a//b", "a/", "./a", ".", "",
                                 "a\\..\\b", "C:/x", "https://x"}) {
    EXPECT_NE(flawOf({path}), "none") << path << " leads elsewhere";
  }
  for (const std::string path :
       {".git/hooks/pre-commit", "a/.GIT/config", "a\nb", "a\u202Eb", "con", "a/nul.txt", "x.", "x ", "..."}) {
    EXPECT_NE(flawOf({path}), "none") << path << " is not what it seems to be somewhere";
  }
  EXPECT_NE(flawOf({std::string("a\0b", 3)}), "none");
  EXPECT_NE(flawOf({std::string(300, 'a')}), "none");
  std::string deep = "a";
  for (int i = 0; i < 40; ++i) deep += "/a";
  EXPECT_NE(flawOf({deep}), "none");
  for (const auto& paths : std::vector<std::vector<std::string>>{
           {"a", "a"}, {"a/b", "A/B"}, {"A/x", "a/y"}, {"a", "a/b"}, {"a/b", "a"}, {"\u00e9", "e\u0301"}}) {
    EXPECT_NE(flawOf(paths), "none") << Json(paths).dump();
  }
  std::vector<std::string> many;
  for (int i = 0; i < 2000; ++i) many.push_back(std::to_string(i));
  EXPECT_EQ(flawOf(many), "none");
  many.emplace_back("SKILL.md");
  EXPECT_THAT(flawOf(many), HasSubstr("more than 2000 files"));
}

TEST(WellKnownIndex, WhatIsNoIndexIsRefusedWhateverItIs) {
  const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  std::string countless = "[0";
  for (int i = 0; i < 2'100'000; ++i) countless += ",0";
  for (const auto& [body, why] : std::vector<std::pair<std::string, std::string>>{
           {"", "no JSON"},
           {"<!DOCTYPE html><html></html>", "no JSON"},
           {"[{\"name\":\"a\"", "no JSON"},
           {"[1e999]", "no JSON"},
           {"{}", "no list of skills"},
           {"{\"skills\":{}}", "no list of skills"},
           {"7", "no list of skills"},
           {"\"text\"", "no list of skills"},
           {nested(5'000'000), "far more than a list"},
           {countless + "]", "far more than a list"},
       }) {
    EXPECT_THAT(errorOf([&, &text = body] { parsed(text); }), IsError(Kind::network, why));
  }
  EXPECT_TRUE(parsed("[]").entries.empty());
  EXPECT_EQ(parsed("[{\"name\":\"caf\xe9\",\"skill-md\":\"x\"}]").entries.at(0).name, "caf\uFFFD");
}

TEST(WellKnownIndex, ANameMeansOneEntryOrNone) {
  const auto index = parsed(R"([{"name":"pdf","skill-md":"1"},{"name":"PDF","skill-md":"2"},
                                {"name":"Two","skill-md":"3"},{"name":"Two","skill-md":"4"},{"name":"b","skill-md":"5"}])");
  EXPECT_EQ(index.entry("PDF").skillMd, "2");
  EXPECT_EQ(index.entry("B").skillMd, "5");
  EXPECT_THAT(errorOf([&] { (void)index.entry("Two"); }), IsError(Kind::invalidInput, "2 skills of the name 'Two'"));
  EXPECT_THAT(errorOf([&] { (void)index.entry("Pdf"); }), IsError(Kind::invalidInput, "2 skills of the name"));
  EXPECT_THAT(errorOf([&] { (void)index.entry("c"); }), IsError(Kind::notFound, "no skill 'c'"));
}

TEST(WellKnownIndex, OnlyABareDomainIsAsked) {
  EXPECT_EQ(bareDomain(" Example.COM "), "example.com");
  EXPECT_EQ(bareDomain("localhost:8443"), "localhost:8443");
  EXPECT_EQ(bareDomain("b\u00fccher.example"), "b\u00fccher.example");
  for (const std::string text :
       {"", "http://example.com", "example.com/", "user@example.com", "a b.com", "-x.com", "a..b", "x.com?y", "x.com#y",
        "x.com:", "x.com:99999", "x.com:1:2", "[::1]", "x\n.com", "x\\y", "%65xample.com", ".com", "x\xff.com"}) {
    EXPECT_EQ(errorOf([&] { (void)bareDomain(text); }),
              SkillsError::invalidInput("Enter a bare domain, e.g. example.com"))
        << text;
  }
}

}  // namespace
}  // namespace orvanta
