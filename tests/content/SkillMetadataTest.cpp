#include "content/SkillMetadata.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>

#include "content/FrontMatter.h"
#include "platform/UniqueFd.h"
#include "tests/support/Sandbox.h"

namespace orvanta {

static void PrintTo(const SkillMeta& meta, std::ostream* out) {
  *out << "name: " << meta.name.value_or("(none)") << ", description: " << meta.description.value_or("(none)");
}

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// The value a front matter gives for "description" written so, between keys that must not be disturbed.
std::string descriptionWritten(const std::string& yaml) {
  const auto values = SkillMetadata::parseFrontmatter("---\nname: before\ndescription:" + yaml +
                                                      "\nlicense: after\n---\nlicense: body\n");
  EXPECT_EQ(values.at("name"), "before") << yaml;
  EXPECT_EQ(values.at("license"), "after") << yaml;
  return values.at("description");
}

struct Written {
  std::string yaml;
  std::string value;
};

void expectDescriptions(const std::vector<Written>& cases) {
  for (const auto& [yaml, value] : cases) EXPECT_EQ(descriptionWritten(yaml), value) << yaml;
}

TEST(FrontMatter, PlainValuesGoOnOverIndentedLinesUpToAComment) {
  expectDescriptions({
      {" one # comment", "one"},
      {" C# and issue#1", "C# and issue#1"},
      {" # comment", ""},
      {" one\n  two\n\tthree", "one two three"},
      {" one\n\n\n  two\n  - three", "one\n\ntwo - three"},
      {" one\n  # comment\n  two", "one"},
      {"\n  # comment\n\n  below\n  the key", "below the key"},
      {" null", "null"},
  });
}

TEST(FrontMatter, QuotedValuesAreDecodedAndFolded) {
  expectDescriptions({
      {R"( "say \"hi\" \\ \x41\u00e9\U0001F600\t.")", "say \"hi\" \\ Aé😀\t."},
      {R"( "\ud83d\ude00 \ud83d")", "😀 \uFFFD"},
      {R"( "C:\quiet\u12")", R"(C:\quiet\u12)"},
      {" \"one  \n  two\n\n   three \\\n   four\\\n  \\ five: # six\" # comment", "one two\nthree four five: # six"},
      {" \"kept \\t \n  end\"", "kept \t end"},
      {" 'it''s \\n'", "it's \\n"},
      {" 'one\n\n  two: # three\n  four' # comment", "one\ntwo: # three four"},
      {"\n  \"below\n  the key\"", "below the key"},
      {" \"at the\nmargin\"", "at the margin"},
      {" \"\"", ""},
  });
}

TEST(FrontMatter, BlocksFollowTheirIndicators) {
  expectDescriptions({
      {" >\n  one\n  two", "one two\n"},
      {" |\n  one\n  two", "one\ntwo\n"},
      {" |- # comment\n  one\n\n", "one"},
      {" >+\n  one\n\n\n", "one\n\n\n\n"},
      {" |2-\n   one\n  two", " one\ntwo"},
      {" >-2\n   one\n  two\n  three", " one\ntwo three"},
      {" >-\n\n  one\n\n\n  two\n    more\n    lines\n  three # four", "\none\n\ntwo\n  more\n  lines\nthree # four"},
      {" |-\n\tone\n\t\ttwo", "one\n\ttwo"},
      {" |-\n    one\n  two", "one\ntwo"},
      {" |\n    name: inner\n    - item\n  # left of the block", "name: inner\n- item\n"},
      {"\n  >-\n  one\n  two", "one two"},
      {" |", ""},
  });
}

TEST(FrontMatter, WhatNoYamlReaderAcceptsKeepsItsText) {
  expectDescriptions({
      {" Use when: the user asks: now", "Use when: the user asks: now"},
      {" [WIP] does [things]", "[WIP] does [things]"},
      {" @mention", "@mention"},
      {" `code` first", "`code` first"},
      {" *bold* words", "*bold* words"},
      {" %percent & more", "%percent & more"},
      {" >=1.2", ">=1.2"},
      {R"( "Use" it or "not" at #1 or "#2")", R"(Use" it or "not" at #1 or "#2)"},
      {R"( "ends in a backslash\")", R"(ends in a backslash\)"},
      {R"( "Use "this" skill)", R"("Use "this" skill)"},
      {" \"never closed\n  at all # comment", "\"never closed at all"},
      {" 'never", "'never"},
      {" [never, closed\n  at: all", "[never, closed at: all"},
  });
}

TEST(FrontMatter, ListsMapsAndFlowValuesHideTheirKeys) {
  const std::string text =
      "---\n"
      "tags:\n- a\n- name: x\n  description: y\n"
      "metadata:\n  name: inner\n  nested:\n    description: |\n      name: deep\n"
      "flow: {name: x, # ]\n  description: 'it''s }',\nname: at the margin\n}\n"
      "list: [\n  \"a ]\\\"\",\n  b\n] # end\n"
      "\"name\": quoted key\n"
      " name: indented\n"
      "name : space before the colon\n"
      "# name: comment\n"
      "name: real\ndescription: text\nname: again\n"
      "---\nname: body\n";
  EXPECT_EQ(SkillMetadata::parseMeta(text), (SkillMeta{"real", "text"}));
  const auto values = SkillMetadata::parseFrontmatter(text);
  EXPECT_EQ(values.at("tags"), "");
  EXPECT_EQ(values.at("metadata"), "");
  EXPECT_EQ(values.at("list"), R"([ "a ]\"", b ])");
  EXPECT_EQ(values.size(), 6U);
}

TEST(FrontMatter, BeginsAndEndsWhereItShould) {
  const std::string block = "---\nname: a\ndescription: b\n---\nname: body\n";
  const SkillMeta expected{"a", "b"};
  EXPECT_EQ(SkillMetadata::parseMeta(block), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("\xEF\xBB\xBF" + block), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("\n \t\n" + block), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("---\r\nname: a\r\ndescription: b\r\n---\r\nname: c"), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("---\rname: a\rdescription: b\r--- \t\rname: c"), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("---\nname: a\ndescription: b\n\n# Never closed\nname: c"), expected);
  EXPECT_EQ(SkillMetadata::parseMeta("---\nname: a\ndescription: |-\n  b\n---\n  c\n"), expected);
  for (const auto* none : {"", "---", "--", "# Title\n---\nname: a\n---\n", "name: a\n", "---\n---\nname: a\n"}) {
    EXPECT_EQ(SkillMetadata::parseMeta(none), SkillMeta()) << none;
  }
}

TEST(FrontMatter, NamesAreOneLineAndEmptyValuesAreNone) {
  EXPECT_EQ(SkillMetadata::parseMeta("---\nname: |\n  my\n\n   skill \ndescription: >\n  one\n  two\n\n  three\n---"),
            (SkillMeta{"my skill", "one two\nthree"}));
  EXPECT_EQ(SkillMetadata::parseMeta("---\nname: \"  \"\ndescription:\n---"), SkillMeta());
}

TEST(FrontMatter, APrefixIsEnoughOnceTheClosingLineIsComplete) {
  const std::string text = "---\nname: a\n---\nbody";
  for (std::size_t size = 0; size < text.size(); ++size) {
    EXPECT_EQ(holdsWholeFrontMatter(text.substr(0, size)), size >= text.find("\nbody") + 1) << size;
  }
  EXPECT_TRUE(holdsWholeFrontMatter("# Title"));
  EXPECT_FALSE(holdsWholeFrontMatter("\xEF\xBB\xBF  \n"));
}

TEST(FrontMatter, HostileTextsTakeTimeInProportionToTheirLength) {
  const std::vector<std::string> repeated = {
      "a: [\n", "a: {x\nb: ] y\n", "a: \"\n", "a: '\n  x\n", "a: |\n", "a: >\n\n\n",
      "- \n",   "a: x\n\n\n",      "a:\n",    "#",           " ",      "a: [ \" # ",
  };
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& part : repeated) {
    std::string text = "---\n";
    while (text.size() < 1'000'000) text += part;
    (void)SkillMetadata::parseMeta(text + "] x\n");
    (void)SkillMetadata::parseMeta(text + "\n] x\n]\n\"\n");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

class SkillFolder : public Sandbox {
 protected:
  void writeFile(const std::string& name, const std::string& content) const { write(skillDir / name, content); }

  [[nodiscard]] SkillMeta parsedThroughDescriptor() const {
    const UniqueFd fd(::open(skillDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return SkillMetadata::parseSkillMdAt(fd.get());
  }

  const Path skillDir = folder(root / "own-name", {});
};

TEST_F(SkillFolder, TheMarkerIsAFileUnderEitherNameTheUpperCaseOneFirst) {
  EXPECT_FALSE(SkillMetadata::isValidSkillDir(skillDir));
  writeFile("Skill.md", "---\nname: mixed\n---\n");
  EXPECT_FALSE(SkillMetadata::isValidSkillDir(skillDir));
  writeFile("skill.md", "---\nname: lower\n---\n");
  fs::create_directory(skillDir / "SKILL.md");
  EXPECT_EQ(SkillMetadata::markerFile(skillDir), skillDir / "skill.md");
  EXPECT_EQ(parsedThroughDescriptor().name, "lower");
  fs::remove(skillDir / "SKILL.md");
  writeFile("SKILL.md", "---\nname: upper\n---\n");
  EXPECT_EQ(SkillMetadata::markerFile(skillDir), skillDir / "SKILL.md");
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir).name, "upper");
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir), "---\nname: upper\n---\n");
}

TEST_F(SkillFolder, WhatIsNoReadableFileIsNoMarkerAndNeverBlocks) {
  ASSERT_EQ(::mkfifo((skillDir / "SKILL.md").c_str(), 0600), 0);
  fs::create_symlink("nowhere", skillDir / "skill.md");
  EXPECT_FALSE(SkillMetadata::isValidSkillDir(skillDir));
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir), SkillMeta());
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir), std::nullopt);
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir / "missing"), SkillMeta());
  writeFile("real.txt", "---\nname: linked\n---\n");
  fs::remove(skillDir / "skill.md");
  fs::create_symlink("real.txt", skillDir / "skill.md");
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir).name, "linked");
}

TEST_F(SkillFolder, LongFilesAreReadAsFarAsNeededAndNoCharacterIsCut) {
  const std::string head = "---\nname: long\n";
  for (const std::size_t padding : {0U, 1U, 2U}) {
    std::string body(padding, 'x');
    while (body.size() < (std::size_t{1} << 20)) body += "漢";
    writeFile("SKILL.md", std::string(head).append("---\n").append(body));
    EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir).name, "long") << "the body is cut at " << padding;
    writeFile("SKILL.md", std::string(head).append("notes: ").append(body).append("\n---\n"));
    EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir).name, "long") << "the front matter is cut at " << padding;
  }
  writeFile("SKILL.md", "---\nnotes: " + std::string(100'000, 'x') + "\nname: far\n---\n");
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir).name, "far");
  EXPECT_EQ(parsedThroughDescriptor().name, "far");
}

TEST_F(SkillFolder, ADocumentIsAWholeTextOrNone) {
  writeFile("SKILL.md", "---\nname: caf\xE9\n---\n");
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir), std::nullopt);
  EXPECT_EQ(SkillMetadata::parseSkillMd(skillDir), SkillMeta());
  writeFile("SKILL.md", "");
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir), "");
  fs::resize_file(skillDir / "SKILL.md", std::uintmax_t{16} << 20);
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir).value_or("").size(), std::size_t{16} << 20);
  fs::resize_file(skillDir / "SKILL.md", (std::uintmax_t{16} << 20) + 1);
  EXPECT_EQ(SkillMetadata::readSkillDocument(skillDir), std::nullopt);
}

TEST_F(SkillFolder, IsKnownByTheSafeNameElseByItsOwn) {
  writeFile("SKILL.md", "---\nname: ../My: Skill\n---\n");
  EXPECT_EQ(SkillMetadata::inferSkillName(skillDir), "My Skill");
  writeFile("SKILL.md", "---\nname: \"..\"\n---\n");
  EXPECT_EQ(SkillMetadata::inferSkillName(skillDir), "own-name");
  EXPECT_EQ(SkillMetadata::inferSkillName(skillDir / ""), "own-name");
  EXPECT_EQ(SkillMetadata::inferSkillName(SkillMeta(), "/"), "unknown-skill");
}

TEST(SkillNames, AreMadeSafeForEveryPlatform) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"  pdf tools \n", "pdf tools"},
      {"Übersetzer 漢字", "Übersetzer 漢字"},
      {"a<b>c:d\"e/f\\g|h?i*j", "abcdefghij"},
      {"../../etc", "etc"},
      {".git", "git"},
      {"\u200D.orvanta", "orvanta"},
      {"name. . .", "name"},
      {"a\x01\x1B[31m\x7F\u0085\u202Eb\uFEFF", "a[31mb"},
      {"con", "con-skill"},
      {"Con .txt", "Con-skill .txt"},
      {"LPT\u00B9", "LPT\u00B9-skill"},
      {"git~1", "git~1-skill"},
      {"console", "console"},
      {"nul" + std::string(300, ' ') + "x", "nul-skill"},
      {"nul." + std::string(300, 'x'), "nul-skill." + std::string(220, 'x')},
      {"", std::nullopt},
      {" .. ", std::nullopt},
      {"???", std::nullopt},
      {"caf\xE9", std::nullopt},
      {std::string(300, 'x'), std::string(230, 'x')},
      {"x" + std::string(227, 'y') + "漢字", "x" + std::string(227, 'y')},
      {std::string(229, 'x') + ".y", std::string(229, 'x')},
  };
  for (const auto& [name, safe] : cases) {
    EXPECT_EQ(SkillMetadata::sanitizeSkillName(name), safe) << name;
    EXPECT_TRUE(!safe || SkillMetadata::isSafeFolderName(*safe)) << name;
  }
}

TEST(SkillNames, FolderNamesThatMeanSomethingElseAreRefused) {
  for (const std::string& name : {""s, "."s, ".."s, ".git"s, "a/b"s, "a\nb"s, "a\0b"s, "a."s, "a "s, "AUX"s, "com7.md"s,
                                  "\u200C.git"s, "GIT~1"s, "\xFF"s, "a\u202E"s, std::string(256, 'x')}) {
    EXPECT_FALSE(SkillMetadata::isSafeFolderName(name)) << name;
  }
  EXPECT_TRUE(SkillMetadata::isSafeFolderName(std::string(255, 'x')));
  EXPECT_TRUE(SkillMetadata::isSafeFolderName("v1.2 (draft): é"));
}

TEST(SkillNames, SlugsKeepTheLettersOfEveryScript) {
  EXPECT_EQ(SkillMetadata::slugify("  Hello, World! 2.0 -- "), "hello-world-2-0");
  EXPECT_EQ(SkillMetadata::slugify("Crème BRÛLÉE / 漢字_हिन्दी"), "crème-brûlée-漢字-हिन्दी");
  EXPECT_EQ(SkillMetadata::slugify("\xFF!?"), "");
}

}  // namespace
}  // namespace orvanta
