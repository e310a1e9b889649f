#include "cli/Names.h"

#include "cli/Table.h"
#include "tests/support/Sandbox.h"

namespace orvanta::cli {

using Kind = SkillsError::Kind;

TEST(Names, ASkillIsFoundByNameIdOrTheBeginningOfItsId) {
  const NameTable table("skill", "orvanta list", NameTable::Ids::byPrefix,
                        {{"1234aaaa", {"Pdf"}, "/one"},
                         {"1234bbbb", {"Übung"}, "/two"},
                         {"cafe0000", {"twin"}, "/three"},
                         {"ffff0000", {"TWIN"}, "/four"},
                         {"eeee0000", {"cafe"}, "/five"}});
  EXPECT_EQ(table.find("PDF"), 0U);
  EXPECT_EQ(table.find("U\u0308BUNG"), 1U) << "composed otherwise";
  EXPECT_EQ(table.find("1234b"), 1U);
  EXPECT_EQ(table.find("CAFE0000"), 2U);
  EXPECT_EQ(table.find("cafe"), 4U) << "a name goes before the beginning of an id";
  const auto error = [&](const std::string& text) { return errorOf([&] { (void)table.find(text); }); };
  EXPECT_THAT(error("twin"), IsError(Kind::conflict, "cafe0000  twin  /three\n  ffff0000  TWIN  /four"));
  EXPECT_THAT(error("1234"), IsError(Kind::conflict, "2 skills"));
  EXPECT_THAT(error("fff"), IsError(Kind::notFound, "'fff'"));
  EXPECT_THAT(error("pfd"), IsError(Kind::notFound, "Did you mean 'Pdf'?"));
  EXPECT_THAT(error(""), IsError(Kind::notFound, "'orvanta list' shows all"));
}

class AgentNames : public Sandbox {};

TEST_F(AgentNames, AnAgentIsFoundByKeyOrName) {
  for (const char* name : {"claude_code", "Claude Code", "claude-code", "CLAUDE CODE"}) {
    EXPECT_EQ(agentNamed(engine(), name), "claude_code") << name;
  }
  engine().saveCustomTool({"my-agent", "Helper", (home / "helper").string(), std::nullopt, ToolCategory::coding});
  EXPECT_EQ(agentsNamed(engine(), {"my-agent", "helper", "cursor"}), (std::vector<std::string>{"my-agent", "cursor"}));
  EXPECT_THAT(errorOf([&] { agentNamed(engine(), "kursor"); }), IsError(Kind::notFound, "Did you mean 'cursor'?"));
}

namespace {

std::string tableOn(bool isTerminal) {
  std::ostringstream out;
  Table table({{"NAME", true}, {"EMPTY"}, {"N", false, true}, {"TEXT", true}});
  table.add({"漢字漢字", "", "1", "a long text that does not fit"});
  table.add({"two\nlines\033[31m", "", "1000", ""});
  table.write(Terminal(out, isTerminal, 30, ColorChoice::never));
  return out.str();
}

}  // namespace

TEST(Table, FitsATerminalAndShowsEverythingElsewhere) {
  EXPECT_EQ(tableOn(true),
            "NAME            N  TEXT\n"
            "漢字漢字        1  a long tex…\n"
            "two lines …  1000\n");
  EXPECT_EQ(tableOn(false),
            "NAME               N  TEXT\n"
            "漢字漢字           1  a long text that does not fit\n"
            "two lines [31m  1000\n");
}

}  // namespace orvanta::cli
