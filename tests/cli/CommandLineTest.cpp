#include "cli/CommandLine.h"

#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/Choice.h"
#include "cli/Completion.h"
#include "cli/UsageError.h"

namespace orvanta::cli {

using Words = std::vector<std::string>;
using testing::HasSubstr;

namespace {

// The words that a shell makes of a line, as far as our examples use it.
Words wordsOf(const std::string& line) {
  std::istringstream text(line.substr(line.find("orvanta ")));
  Words words;
  for (std::string word; text >> std::quoted(word) && word != ">";) {
    words.push_back(word.ends_with(')') ? word.substr(0, word.size() - 1) : word);
  }
  words.erase(words.begin());
  return words;
}

std::string errorOf(const Words& words) {
  const Invocation invocation = invocationOf(words);
  GlobalOptions globals;
  try {
    CommandLine(*invocation.command, globals).parse(invocation.rest);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "";
}

}  // namespace

TEST(CommandLine, EveryCommandHasAnExampleThatItAccepts) {
  for (const Command& command : allCommands()) {
    if (command.setUp == nullptr) continue;
    GlobalOptions globals;
    const CommandLine line(command, globals);
    EXPECT_FALSE(line.examples().empty()) << command.name;
    for (const Example& example : line.examples()) EXPECT_EQ(errorOf(wordsOf(example.line)), "") << example.line;
  }
}

TEST(CommandLine, TheCommandsOfAGroupStandTogether) {
  std::vector<std::string_view> groups;
  for (const Command& command : allCommands()) {
    if (groups.empty() || groups.back() != command.group) groups.push_back(command.group);
  }
  const std::set<std::string_view> unique(groups.begin(), groups.end());
  EXPECT_EQ(groups.size(), unique.size()) << "help shows a heading twice";
}

TEST(CommandLine, GlobalOptionsStandAnywhere) {
  for (const Words& words :
       {Words{"--library", "tag", "-q", "tag", "list", "--json"}, Words{"tag", "--json", "list", "-q", "--library=tag"},
        Words{"-q", "tag", "--library", "tag", "--json", "list"}}) {
    const Invocation invocation = invocationOf(words);
    ASSERT_EQ(invocation.name, "tag list") << testing::PrintToString(words);
    GlobalOptions globals;
    CommandLine(*invocation.command, globals).parse(invocation.rest);
    EXPECT_TRUE(globals.quiet && globals.json && globals.library == "tag") << testing::PrintToString(words);
  }
}

TEST(CommandLine, ASkillMayBeCalledLikeACommand) {
  const Invocation invocation = invocationOf({"show", "list"});
  EXPECT_EQ(invocation.name, "show");
  EXPECT_EQ(invocation.rest, (Words{"list"}));
  EXPECT_EQ(errorOf({"show", "list"}), "");
  EXPECT_EQ(errorOf({"show", "--", "--files"}), "");
}

TEST(CommandLine, AWrongLineIsExplained) {
  EXPECT_THAT(errorOf({"deploy", "pdf", "--all-agnts"}), HasSubstr("did you mean '--all-agents'?"));
  EXPECT_THAT(errorOf({"deploy", "pdf", "--to"}), HasSubstr("AGENT is missing"));
  EXPECT_THAT(errorOf({"deploy", "--all-agents"}), HasSubstr("SKILL is required"));
  EXPECT_THAT(errorOf({"list", "a", "b"}), HasSubstr("'b' is one word too many"));
  EXPECT_THAT(errorOf({"log", "--limit", "1e3"}), HasSubstr("'1e3'"));
  EXPECT_THAT(errorOf({"show", "a", "--files", "--file", "b"}), HasSubstr("excludes"));
}

TEST(Choice, NumbersRangesAndAllPickFromAList) {
  using Positions = std::vector<std::size_t>;
  EXPECT_EQ(parseChoice("3, 1-2 2", 3), (Positions{0, 1, 2}));
  EXPECT_EQ(parseChoice("All", 2), (Positions{0, 1}));
  EXPECT_EQ(parseChoice("  ", 2), Positions{});
  for (const char* wrong : {"0", "3", "2-1", "-", "1-", "x", "99999999999999999999"}) {
    EXPECT_EQ(parseChoice(wrong, 2), std::nullopt) << wrong;
  }
}

TEST(Completion, OffersWhatMayStandAtThePlace) {
  const LibraryWords library{[] {
                               return std::vector<Candidate>{{"pdf", ""}, {"My skill", ""}, {"a\nb", ""}};
                             },
                             [] {
                               return std::vector<Candidate>{{"cursor", ""}, {"codex", ""}};
                             },
                             [] {
                               return std::vector<Candidate>{{"office", ""}};
                             }};
  const auto offered = [&](const Words& words) {
    Words found;
    for (const Candidate& candidate : candidatesFor(words, library)) found.push_back(candidate.word);
    return found;
  };
  EXPECT_EQ(offered({"und"}), (Words{"undeploy"}));
  EXPECT_EQ(offered({"--json", "tag", "re"}), (Words{"remove", "rename"}));
  EXPECT_EQ(offered({"deploy", "m"}), (Words{"My skill"}));
  EXPECT_EQ(offered({"deploy", ""}), (Words{"pdf", "My skill"})) << "not what would break the shell's line";
  EXPECT_EQ(offered({"deploy", "pdf", "--to", "cursor", "co"}), (Words{"codex"}));
  EXPECT_EQ(offered({"deploy", "pdf", "--fo"}), (Words{"--force"}));
  EXPECT_EQ(offered({"tag", "add", "pdf", "o"}), (Words{"office"}));
  EXPECT_EQ(offered({"list", "--color=al"}), (Words{"--color=always"}));
  EXPECT_EQ(offered({"config", "set", "s"}), (Words{"sync_mode"}));
  EXPECT_EQ(offered({"log", "e"}), (Words{"export"}));
  EXPECT_EQ(offered({"show", "pdf", "x"}), Words{});
  EXPECT_EQ(offered({"nonsense", ""}), Words{});
  EXPECT_EQ(offered({"show", "pdf", "--", "--f"}), Words{});
}

}  // namespace orvanta::cli
