// The first hour of a new user, from the empty library to an empty library.

#include "tests/e2e/Program.h"
#include "tests/sources/ZipBuilder.h"

namespace orvanta {

using testing::HasSubstr;

namespace {

std::vector<std::string> namesIn(const Json& summaries) {
  std::vector<std::string> names;
  for (const Json& summary : summaries) names.push_back(summary["record"]["name"]);
  return names;
}

}  // namespace

class FirstUse : public Program {
 protected:
  FirstUse() {
    environment.erase("ORVANTA_HOME");
    for (const char* agent : {"cursor", "claude_code", "codex"}) agentInstalled(agent);
    givenSkill("pdf", {{"scripts/run.sh", "echo hi\n"}});
    givenSkill("docx");
    write(home / "csv.skill", zipArchive({{.name = "pack/SKILL.md", .content = "---\nname: csv\n---\n"}}));
  }

  std::string placed(const std::string& agentFolder) const {
    const Path place = home / agentFolder / "pdf";
    if (std::filesystem::is_symlink(place)) return "link";
    return std::filesystem::exists(place / "scripts/run.sh") ? "copy" : "nothing";
  }
};

TEST_F(FirstUse, LeadsFromAnEmptyLibraryToDeployedSkillsAndBackWithNothingLeftBehind) {
  EXPECT_THAT(orvanta({}).out, HasSubstr("orvanta install"));
  const std::string before = folderAsText(home / ".cursor") + folderAsText(home / ".claude");

  EXPECT_THAT(orvanta({"install", "Downloads", "--all", "--to", "cursor", "Claude Code"}).out,
              HasSubstr("2 skills installed"));
  EXPECT_EQ(orvanta({"install", "csv.skill", "--to", "cursor"}).status, 0);
  EXPECT_EQ(orvanta({"config", "set", "sync_mode", "copy"}).status, 0);
  EXPECT_EQ(orvanta({"deploy", "PDF", "--to", "codex"}).status, 0);
  EXPECT_EQ(placed(".cursor/skills") + placed(".claude/skills") + placed(".codex/skills"), "linklinkcopy");

  std::filesystem::remove(home / ".cursor/skills/pdf");
  EXPECT_THAT(orvanta({"repair"}).out, HasSubstr("1 deployment repaired"));
  EXPECT_EQ(placed(".cursor/skills"), "link");
  EXPECT_EQ(orvanta({"disable", "pdf"}).status, 0);
  EXPECT_EQ(placed(".cursor/skills") + placed(".codex/skills"), "nothingnothing");
  EXPECT_EQ(orvanta({"enable", "pdf"}).status, 0);
  EXPECT_EQ(placed(".cursor/skills") + placed(".codex/skills"), "linkcopy");

  EXPECT_EQ(orvanta({"remove", "pdf", "docx", "csv", "--yes"}).status, 0);
  std::filesystem::remove(home / ".cursor/skills");
  std::filesystem::remove(home / ".claude/skills");
  EXPECT_EQ(folderAsText(home / ".cursor") + folderAsText(home / ".claude"), before);
  EXPECT_TRUE(std::filesystem::is_empty(home / ".orvanta/skills") && std::filesystem::is_empty(user.temp));
  const std::string log = orvanta({"log", "--limit", "100"}).out;
  for (const char* action :
       {"install_local", "install_archive", "deploy", "disable_skill", "enable_skill", "remove_skill"}) {
    EXPECT_THAT(log, HasSubstr(action));
  }
}

TEST_F(FirstUse, GivesEveryStepAsOneJsonDocument) {
  EXPECT_EQ(json({"status"})["stats"]["totalSkills"], 0);
  EXPECT_EQ(json({"list"}), Json::array());
  EXPECT_EQ(namesIn(json({"install", "Downloads/pdf"})["installed"]), (Words{"pdf"}));
  const Json deployed = json({"deploy", "pdf", "--to", "cursor", "codex"});
  EXPECT_EQ(deployed["deployed"].size(), 2U);
  EXPECT_EQ(deployed["errors"], Json::array());
  EXPECT_EQ(json({"show", "pdf", "--files"})["files"].size(), 2U);
  EXPECT_EQ(json({"tag", "add", "pdf", "Office"})["tags"], Json::array({"office"}));
  EXPECT_EQ(namesIn(json({"list", "--tag", "office", "--agent", "cursor"})), (Words{"pdf"}));
  EXPECT_EQ(json({"agent", "show", "cursor"})["entries"][0]["kind"], "managed");
  EXPECT_EQ(json({"disable", "pdf"})[0]["record"]["enabled"], false);
  EXPECT_EQ(json({"repair"})["errors"], Json::array());
  EXPECT_EQ(json({"undeploy", "pdf", "--all-agents"})["removed"].size(), 2U);
  EXPECT_EQ(json({"remove", "pdf", "--yes"})["removed"].size(), 1U);
  EXPECT_GE(json({"log"}).size(), 6U);
  EXPECT_EQ(json({"log", "clear", "--yes"})["cleared"], true);
}

TEST_F(FirstUse, BringsSkillsThatAgentsHoldUnderManagement) {
  skillFolder(home / ".cursor/skills/mine");
  skillFolder(home / ".codex/skills/mine");
  EXPECT_THAT(orvanta({"discover"}).out, HasSubstr("cursor, codex"));
  const std::string before = folderAsText(home / ".cursor");
  EXPECT_EQ(orvanta({"import", "--discovered", "mine", "--adopt"}).status, 2);
  EXPECT_EQ(folderAsText(home / ".cursor"), before) << "nobody agreed";
  EXPECT_EQ(orvanta({"import", "--discovered", "mine", "--adopt", "--yes"}).status, 0);
  EXPECT_EQ(json({"show", "mine"})["targets"].size(), 2U);
  EXPECT_TRUE(std::filesystem::is_symlink(home / ".codex/skills/mine"));
  EXPECT_EQ(json({"discover"}), Json::array());
}

}  // namespace orvanta
