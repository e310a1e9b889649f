#include "cli/Names.h"

#include "cli/Table.h"
#include "cli/commands/Projects.h"
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

class ProjectNames : public Sandbox {};

TEST_F(ProjectNames, AProjectIsFoundByNameIdOrFolder) {
  const Path site = folder(root / "code/site", {{"README.md", ""}});
  const std::string id = engine().addProject(site, "Web").id;
  const Path before = std::filesystem::current_path();
  std::filesystem::current_path(site);
  for (const std::string& name : {std::string("web"), id.substr(0, 8), site.string() + "/", std::string("."),
                                  std::string("../site"), std::string("./")}) {
    EXPECT_EQ(projectNamed(engine(), name).id, id) << name;
  }
  std::filesystem::current_path(before);
  EXPECT_THAT(errorOf([&] { projectNamed(engine(), "site"); }), IsError(Kind::notFound, "orvanta project list"));
  EXPECT_THAT(errorOf([&] { projectNamed(engine(), "/nowhere"); }), IsError(Kind::notFound, "'/nowhere'"));
}

namespace {

ProjectSkill skillAt(const std::string& relativePath, const std::string& agentFolder) {
  ProjectSkill skill;
  skill.name = std::filesystem::path(relativePath).filename();
  skill.relativePath = relativePath;
  skill.path = "/site/" + agentFolder + "/" + relativePath;
  return skill;
}

}  // namespace

TEST(ProjectSkillNames, ASkillIsFoundByItsPathOrByANameThatOnlyItHas) {
  ProjectRecord site;
  site.path = "/site";
  const std::vector<ProjectSkill> skills{skillAt("Pdf", ".a/skills"), skillAt("pdf", ".b/skills"),
                                         skillAt("deep/lint", ".a/skills")};
  const auto found = [&](const std::string& typed) {
    const ChosenSkill chosen = chosenSkill(site, skills, typed);
    return chosen.path.string() + (chosen.skill ? "" : " (no skill)");
  };
  EXPECT_EQ(found("/site/.b/skills/pdf/"), "/site/.b/skills/pdf");
  EXPECT_EQ(found(".a/skills/../skills/Pdf"), "/site/.a/skills/Pdf");
  EXPECT_EQ(found("deep/lint"), "/site/.a/skills/deep/lint");
  EXPECT_EQ(found("LINT"), "/site/.a/skills/deep/lint");
  EXPECT_EQ(found("../outside"), "/outside (no skill)") << "for the engine to refuse";
  EXPECT_EQ(found("/etc"), "/etc (no skill)");
  EXPECT_THAT(errorOf([&] { found("PDF"); }),
              IsError(Kind::conflict, "2 skills of the project. Name one by its path:\n  /site/.a/skills/Pdf\n"));
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
