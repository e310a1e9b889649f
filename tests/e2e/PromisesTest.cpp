// What the program promises to whoever calls it: scripts, careless users, users in a hurry.

#include <signal.h>

#include <thread>

#include "tests/e2e/Program.h"

namespace orvanta {

using testing::HasSubstr;
using testing::Not;

namespace {

bool isAbsent(const std::filesystem::path& path) { return !std::filesystem::exists(path); }

}  // namespace

class Promises : public Program {
 protected:
  // A folder with skills named PREFIX-0, PREFIX-1, …
  Path givenSkills(const std::string& prefix, int count) const {
    for (int i = 0; i < count; ++i) {
      const std::string name = prefix + "-" + std::to_string(i);
      skillFolder(home / prefix / name, {{"a.txt", std::string(5000, 'a')}, {"b/c.txt", "c"}, {"b/d.txt", "d"}});
    }
    return home / prefix;
  }
};

TEST_F(Promises, TheExitStatusSaysHowItEnded) {
  givenSkill("pdf");
  agentInstalled("cursor");
  const std::vector<std::pair<Words, int>> runs{
      {{"--version"}, 0},
      {{"help", "deploy"}, 0},
      {{"list"}, 0},
      {{"install", "Downloads/pdf"}, 0},
      {{"-q", "list", "--json"}, 0},
      {{"--library", (root / "other").string(), "list"}, 0},
      {{"show", "nothing"}, 1},
      {{"install", "Downloads/nothing"}, 1},
      {{"deploy", "pdf", "--to", "codex"}, 1},
      {{"deploy", "pdf", "--to", "cursor", "codex"}, 3},
      {{"dploy"}, 2},
      {{"tag"}, 2},
      {{"deploy", "pdf"}, 2},
      {{"deploy", "pdf", "--to"}, 2},
      {{"list", "--no-such-option"}, 2},
      {{"list", "--color", "pink"}, 2},
      {{"config", "set", "proxy_url", "here"}, 1},
  };
  for (const auto& [words, status] : runs) {
    const Outcome outcome = orvanta(words);
    EXPECT_EQ(outcome.status, status) << testing::PrintToString(words) << outcome.err;
    EXPECT_EQ(outcome.err.find("error: ") != std::string::npos, status != 0) << testing::PrintToString(words);
  }
}

TEST_F(Promises, AnErrorUnderJsonIsOneDocumentOnTheErrorStream) {
  for (const Words& words : {Words{"--json", "show", "nothing"}, Words{"show", "nothing", "--nonsense", "--json"}}) {
    const Outcome outcome = orvanta(words);
    EXPECT_EQ(outcome.out, "");
    const Json error = Json::parse(outcome.err, nullptr, false);
    ASSERT_TRUE(error.contains("error")) << outcome.err;
    EXPECT_THAT(error["error"]["message"].get<std::string>(), HasSubstr("no"));
  }
}

TEST_F(Promises, NamesFromStrangersBreakNeitherJsonNorTheTerminal) {
  const std::string escape = "\033]0;owned\a\033[31m";
  write(home / "Downloads/odd/SKILL.md", "---\nname: odd\ndescription: red " + escape + "\n---\n" + escape + "\n");
  write(home / "Downloads/odd/caf\xe9 \033[2J.txt", "latin");
  agentInstalled("cursor");
  EXPECT_EQ(json({"install", "Downloads/odd", "--to", "cursor"})["installed"].size(), 1U);
  EXPECT_EQ(json({"show", "odd", "--files"})["files"].size(), 2U);
  environment["NO_COLOR"] = "1";
  for (const Words& words : {Words{"list"}, Words{"show", "odd", "--files"}, Words{"agent", "show", "cursor"},
                             Words{"show", "odd", "--file", "SKILL.md"}, Words{"show", "odd\033[31m"}}) {
    const std::string shown = onTerminal(words, "").out;
    EXPECT_THAT(shown, Not(HasSubstr("\033"))) << testing::PrintToString(words);
    EXPECT_THAT(shown, HasSubstr("odd"));
  }
}

TEST_F(Promises, WhatDestroysIsDoneOnlyWithConsent) {
  agentInstalled("cursor");
  EXPECT_EQ(orvanta({"install", givenSkill("pdf").string()}).status, 0);
  const Path own = agentHas("cursor", "pdf", {{"mine.txt", "mine"}});
  const Path other = agentHas("cursor", "other");
  const std::string before = everythingAsText();
  const std::vector<Words> commands{{"remove", "pdf"},
                                    {"deploy", "pdf", "--to", "cursor", "--force"},
                                    {"delete-unmanaged", "other", "--agent", "cursor"},
                                    {"import", "other", "--agent", "cursor", "--adopt"},
                                    {"log", "clear"}};
  for (const Words& command : commands) {
    const Outcome silent = orvanta(command);
    EXPECT_EQ(silent.status, 2) << testing::PrintToString(command);
    EXPECT_THAT(silent.err, HasSubstr("--yes"));
    const Outcome refused = onTerminal(command, "n\n");
    EXPECT_EQ(refused.status, 1) << testing::PrintToString(command);
    EXPECT_THAT(refused.out, HasSubstr("[y/N]"));
  }
  EXPECT_EQ(everythingAsText(), before);
  EXPECT_EQ(onTerminal(commands[1], "y\n").status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(own));
  EXPECT_EQ(orvanta({"delete-unmanaged", other.string(), "--agent", "cursor", "--yes"}).status, 0);
  EXPECT_TRUE(isAbsent(other));
}

TEST_F(Promises, ADryRunTellsWhatTheCommandThenDoes) {
  agentInstalled("cursor");
  agentInstalled("codex");
  agentHas("codex", "pdf");
  EXPECT_EQ(orvanta({"install", givenSkill("pdf").string()}).status, 0);
  const std::string before = everythingAsText() + sql("SELECT * FROM audit_log");
  const Json plan = json({"deploy", "pdf", "--to", "cursor", "codex", "--dry-run"});
  ASSERT_EQ(plan.size(), 2U);
  EXPECT_EQ(plan[0]["action"], "place");
  EXPECT_EQ(plan[1]["action"], "refused");
  EXPECT_EQ(json({"remove", "pdf", "--dry-run"})[0]["action"], "remove");
  EXPECT_EQ(json({"install", givenSkill("new").string(), "--dry-run"})[0]["action"], "place");
  std::filesystem::remove_all(home / "Downloads/new");
  EXPECT_EQ(everythingAsText() + sql("SELECT * FROM audit_log"), before);
  EXPECT_EQ(orvanta({"deploy", "pdf", "--to", "cursor", "codex"}).status, 3);
  EXPECT_TRUE(std::filesystem::is_symlink(plan[0]["path"].get<std::string>()));
}

TEST_F(Promises, CtrlCLeavesNothingHalfDone) {
  const std::vector<std::string> agents{"cursor", "codex", "claude_code", "gemini_cli"};
  for (const std::string& agent : agents) agentInstalled(agent);
  EXPECT_EQ(orvanta({"install", givenSkills("many", 250).string(), "--all"}).status, 0);
  EXPECT_EQ(orvanta({"config", "set", "sync_mode", "copy"}).status, 0);
  Words deploy{"deploy"};
  for (int i = 0; i < 250; ++i) deploy.push_back("many-" + std::to_string(i));
  deploy.insert(deploy.end(), {"--to", "cursor", "codex", "claude_code", "gemini_cli"});

  const Running running = start(deploy);
  const Path begun = home / ".cursor/skills";
  while (isAbsent(begun) || std::filesystem::is_empty(begun)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  ::kill(running.id, SIGINT);
  ::kill(running.id, SIGINT);
  EXPECT_EQ(finish(running).status, 130);

  std::string placed;
  for (const char* folder : {".claude/skills", ".codex/skills", ".cursor/skills", ".gemini/skills"}) {
    if (isAbsent(home / folder)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(home / folder)) {
      EXPECT_TRUE(std::filesystem::exists(entry.path() / "b/d.txt")) << entry.path();
      placed += sql("SELECT target_path FROM skill_targets WHERE target_path = '" + entry.path().string() + "'");
    }
  }
  EXPECT_EQ(std::count(placed.begin(), placed.end(), '\n'), std::stol(sql("SELECT COUNT(*) FROM skill_targets")));
  EXPECT_TRUE(std::filesystem::is_empty(user.temp));
  EXPECT_EQ(orvanta(deploy).status, 0);
  EXPECT_EQ(sql("SELECT COUNT(*) FROM skill_targets"), "1000\n");
}

TEST_F(Promises, TwoRunsAtOnceBothGetTheirWork) {
  const Running first = start({"install", givenSkills("left", 40).string(), "--all", "--json"});
  const Running second = start({"install", givenSkills("right", 40).string(), "--all", "--json"});
  for (const Outcome& outcome : {finish(first), finish(second)}) {
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["installed"].size(), 40U);
  }
  EXPECT_EQ(json({"list"}).size(), 80U);
}

TEST_F(Promises, CompletionAnswersAndMakesNoLibrary) {
  const auto offered = [&](const Words& typed) {
    Words words{"__complete", "--"};
    words.insert(words.end(), typed.begin(), typed.end());
    const Outcome outcome = orvanta(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  };
  EXPECT_THAT(offered({"dep"}), HasSubstr("deploy\t"));
  EXPECT_EQ(offered({"show", ""}), "");
  EXPECT_THAT(offered({"deploy", "x", "--to", "cla"}), HasSubstr("claude_code\tClaude Code"));
  EXPECT_TRUE(isAbsent(paths.base()));
  EXPECT_EQ(orvanta({"completion", "bash"}).status, 0);
  EXPECT_TRUE(isAbsent(paths.base()));
  EXPECT_EQ(orvanta({"install", givenSkill("pdf").string()}).status, 0);
  EXPECT_EQ(offered({"show", "P"}), "pdf\tWhat pdf does.\n");
  EXPECT_EQ(offered({"install", "Down"}), ":files\n");
}

TEST_F(Promises, AParentFolderOffersItsSkillsOnATerminalAndAsksForAChoiceElsewhere) {
  const std::string parent = givenSkills("many", 3).string();
  const Outcome silent = orvanta({"install", parent});
  EXPECT_EQ(silent.status, 2);
  EXPECT_THAT(silent.err, HasSubstr("3 skills"));
  EXPECT_EQ(onTerminal({"install", parent}, "9\n1,3\n").status, 0);
  EXPECT_EQ(orvanta({"install", parent, "--path", "many-1"}).status, 0);
  EXPECT_EQ(sql("SELECT name FROM skills ORDER BY created_at"), "many-0\nmany-2\nmany-1\n");
}

}  // namespace orvanta
