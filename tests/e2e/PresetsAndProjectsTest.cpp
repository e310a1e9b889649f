// Presets and projects as their user meets them: by the words of the command line alone.

#include <chrono>
#include <filesystem>

#include "tests/e2e/Program.h"

namespace orvanta {

using testing::HasSubstr;

class PresetsAndProjects : public Program {
 protected:
  PresetsAndProjects() {
    for (const char* agent : {"cursor", "claude_code", "codex"}) agentInstalled(agent);
    for (const char* skill : {"pdf", "docx", "lint"}) givenSkill(skill, {{"notes", "one"}});
    EXPECT_EQ(orvanta({"install", "Downloads", "--all"}).status, 0);
  }

  std::string statusOf(const std::string& skill) {
    for (const Json& each : json({"project", "show", "site"})) {
      if (each["name"] == skill) return each["syncStatus"];
    }
    return "gone";
  }
};

TEST_F(PresetsAndProjects, APresetIsMadeAppliedFollowedAndGivenUp) {
  EXPECT_EQ(orvanta({"preset", "create", "Review", "pdf", "lint", "--description", "for reviews"}).status, 0);
  EXPECT_EQ(json({"preset", "apply", "review"}),
            (Json{{"deployed", 6}, {"removed", 0}, {"skipped", 0}, {"errors", Json::array()}}));
  EXPECT_EQ(json({"preset", "show", "review"})["activation"], (Json{{"active", 6}, {"total", 6}}));
  EXPECT_EQ(json({"status"})["activePreset"]["name"], "Review");
  EXPECT_EQ(json({"list", "--preset", "review"}).size(), 2U);

  EXPECT_EQ(orvanta({"preset", "toggle", "review", "pdf", "cursor", "off"}).status, 0);
  EXPECT_EQ(json({"preset", "show", "Review"})["activation"], (Json{{"active", 5}, {"total", 5}}));

  EXPECT_THAT(orvanta({"preset", "duplicate", "review"}).out, HasSubstr("Review copy"));
  EXPECT_EQ(orvanta({"preset", "create", "Writing", "docx"}).status, 0);
  EXPECT_EQ(json({"preset", "apply", "writing", "--exclusive", "--dry-run"}).size(), 8U);
  EXPECT_EQ(orvanta({"preset", "apply", "writing", "--exclusive"}).status, 2) << "nobody can be asked";
  EXPECT_EQ(json({"preset", "apply", "writing", "--exclusive", "--yes"})["removed"], 5);
  EXPECT_EQ(json({"preset", "deactivate", "writing"})["removed"], 3);
  EXPECT_EQ(json({"status"})["activePreset"], nullptr);

  EXPECT_EQ(orvanta({"preset", "create", "REVIEW"}).status, 1);
  EXPECT_THAT(orvanta({"preset", "show", "revew"}).err, HasSubstr("Did you mean 'Review'?"));
  EXPECT_EQ(json({"install", "Downloads/pdf", "--preset", "writing"})["preset"]["name"], "Writing");
  EXPECT_THAT(orvanta({"__complete", "--", "preset", "apply", "Rev"}).out, HasSubstr("Review copy"));
}

TEST_F(PresetsAndProjects, AProjectsSkillsGoBothWaysAndItsFilesStay) {
  const Path project = home / "code" / "site";
  skillFolder(project / ".claude" / "skills" / "own");
  skillFolder(home / "code" / "other" / ".cursor" / "skills" / "x");
  EXPECT_EQ(orvanta({"project", "add", "code/site"}).status, 0);
  const Json found = json({"project", "scan", "code"});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[1]["alreadyAdded"], true);

  EXPECT_EQ(json({"project", "export", "site", "pdf", "--agent", "cursor"})["deployed"], 1);
  EXPECT_EQ(json({"project", "export", "site", "lint", "--agent", "cursor", "--mode", "symlink"})["deployed"], 1);
  EXPECT_EQ(statusOf("pdf") + " " + statusOf("lint") + " " + statusOf("own"), "in_sync in_sync project_only");

  const Path notes = project / ".cursor" / "skills" / "pdf" / "notes";
  write(notes, "two");
  std::filesystem::last_write_time(notes, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  EXPECT_EQ(json({"project", "list"})[0]["health"]["needsAttention"], 1);
  EXPECT_THAT(orvanta({"project", "list"}).out, HasSubstr("1 project newer, 1 only here, 1 in sync"));
  EXPECT_EQ(orvanta({"project", "push", "site", "pdf"}).status, 2) << "nobody can be asked";
  EXPECT_EQ(orvanta({"project", "push", "site", "pdf", "--yes"}).status, 0);
  EXPECT_EQ(read(paths.skills() / "pdf" / "notes"), "two");
  write(paths.skills() / "pdf" / "notes", "three");
  EXPECT_THAT(onTerminal({"project", "pull", "site", ".cursor/skills/pdf"}, "y\n").out, HasSubstr("Overwrite 'pdf'"));
  EXPECT_EQ(read(notes), "three");
  EXPECT_THAT(orvanta({"project", "pull", "site", "lint"}).out, HasSubstr("a link into the library"));

  EXPECT_EQ(orvanta({"project", "disable", "site", "own"}).status, 0);
  EXPECT_EQ(orvanta({"project", "enable", "site", "own"}).status, 0);
  EXPECT_EQ(json({"project", "import", "site", "own"})["record"]["sourceType"], "import");
  const std::string before = folderAsText(project);
  EXPECT_EQ(orvanta({"project", "remove", "site"}).status, 0);
  EXPECT_EQ(folderAsText(project), before);
  EXPECT_EQ(json({"project", "list"}), Json::array());
}

}  // namespace orvanta
