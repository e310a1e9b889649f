#include "sources/ProjectScanner.h"

#include <algorithm>
#include <limits>

#include <fmt/format.h>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;
using ProjectScanner::ScanScope;

TEST(ProjectSyncStatusTest, WhatIsUnknownDecidesNothingAndNoTimeIsTooFarAway) {
  using enum ProjectSyncStatus;
  using Time = std::optional<std::int64_t>;
  const std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
  const std::int64_t latest = std::numeric_limits<std::int64_t>::max();
  const auto compared = [](Time project, Time center) {
    return ProjectScanner::classifySyncStatus("a", project, SkillState{"b", center});
  };
  EXPECT_EQ(ProjectScanner::classifySyncStatus(std::nullopt, 5000, SkillState{std::nullopt, 5000}), diverged);
  EXPECT_EQ(compared(std::nullopt, 5000), diverged);
  EXPECT_EQ(compared(5000, std::nullopt), diverged);
  EXPECT_EQ(compared(latest, earliest), projectNewer);
  EXPECT_EQ(compared(earliest, 0), centerNewer);
  EXPECT_EQ(compared(latest - 1000, latest), diverged);
}

class ProjectScannerTest : public Sandbox {
 protected:
  // Each project as "path: agents, number of skills", a registered one with a "+" after it.
  Texts scanned(int maxDepth = 20, const OperationContext& context = {}) const {
    Texts lines;
    for (const auto& project : ProjectScanner::scanProjects(top, maxDepth, agents, scope, context)) {
      EXPECT_EQ(project.name, fs::path(project.path).filename());
      lines.push_back(fmt::format("{}: {}, {}{}", fs::path(project.path).lexically_relative(top).string(),
                                  fmt::join(project.agents, " "), project.skillCount,
                                  project.alreadyAdded ? " +" : ""));
    }
    return lines;
  }

  static ToolAdapter agent(const std::string& key, const std::string& relative, bool recursive = false) {
    ToolAdapter adapter;
    adapter.key = key;
    adapter.relativeSkillsDir = relative;
    adapter.recursiveScan = recursive;
    return adapter;
  }

  const Path top = folder(root / "top", {{"a file", ""}});
  const Path elsewhere = folder(root / "elsewhere", {});
  std::vector<ToolAdapter> agents{agent("one", ".one/skills"), agent("two", ".two/skills")};
  ScanScope scope;
};

TEST_F(ProjectScannerTest, EveryFolderWithSkillsOfAnAgentIsAProject) {
  for (const auto* skill : {".one/skills/a", "z/.one/skills/a", "z/.two/skills/b", "z/.two/skills/c",
                            "z/sub/in/.two/skills/d", "m/.one/worktrees/w/.one/skills/e"}) {
    skillFolder(top / skill);
  }
  folder(top / "only a file", {{".one/skills", ""}});
  folder(top / "no skill", {{".one/skills/x/README.md", ""}});
  scope.known = {top / "z"};
  EXPECT_EQ(scanned(), (Texts{".: one, 1", "m/.one/worktrees/w: one, 1", "z: one two, 3 +", "z/sub/in: two, 1"}));
}

TEST_F(ProjectScannerTest, DepthCountsFromTheRoot) {
  for (const auto* project : {".", "1", "1/2", "1/2/3"}) skillFolder(top / project / ".one/skills/a");
  EXPECT_EQ(scanned(0), Texts{".: one, 1"});
  EXPECT_EQ(scanned(2), (Texts{".: one, 1", "1: one, 1", "1/2: one, 1"}));
}

TEST_F(ProjectScannerTest, FoldersThatAreNobodysProjectAreNotEntered) {
  for (const auto name : ProjectScanner::scanSkip) skillFolder(top / name / "project" / ".one/skills/a");
  for (const auto* near : {"targets", "library"}) skillFolder(top / near / ".one/skills/a");
  skillFolder(top / "store" / "deep" / ".one/skills/a");
  skillFolder(top / ".one/skills/global");
  skillFolder(top / ".two/skills/of the project");
  scope.excluded = {top / "store", top / ".one/skills"};
  fs::create_directories(top / "linking" / ".two");
  fs::create_directory_symlink(top / ".one/skills", top / "linking" / ".two/skills");
  for (int i = 0; i < 600; ++i) fs::create_directories(top / "store" / std::to_string(i));
  const OperationContext context{{}, [](const Progress&) { ADD_FAILURE() << "hundreds of folders were seen"; }};
  EXPECT_EQ(scanned(20, context), (Texts{".: two, 1", "library: one, 1", "targets: one, 1"}));
  scope.excluded = {root};
  EXPECT_EQ(scanned(), Texts{});
}

TEST_F(ProjectScannerTest, AFolderThatAgentsShareCountsOnceForTheFirstOfThem) {
  agents = {agent("first", ".shared/skills/"), agent("second", ".shared/./skills"),
            agent("linked", ".own/skills", true)};
  skillFolder(top / "p" / ".shared/skills/a");
  fs::create_directory_symlink(".shared", top / "p" / ".own");
  skillFolder(top / "q" / ".own/skills/group/b");
  EXPECT_EQ(scanned(), (Texts{"p: first, 1", "q: linked, 1"}));
  std::rotate(agents.begin(), agents.begin() + 2, agents.end());
  EXPECT_EQ(scanned(), (Texts{"p: linked, 1", "q: linked, 1"}));
}

TEST_F(ProjectScannerTest, SkillsAreNotSearchedForProjects) {
  skillFolder(top / "p" / ".one/skills/a");
  skillFolder(top / "p" / ".one/skills/a/.one/skills/example");
  skillFolder(top / "q" / "real/b/.one/skills/example");
  skillFolder(top / "q" / "real/b");
  fs::create_directories(top / "q" / ".two");
  fs::create_directory_symlink("../real", top / "q" / ".two/skills");
  EXPECT_EQ(scanned(), (Texts{"p: one, 1", "q: two, 1"}));
}

TEST_F(ProjectScannerTest, AgentsFoldersOutsideOfTheirProjectAreNone) {
  agents = {agent("empty", ""), agent("itself", "./"), agent("up", "../.one/skills"),
            agent("absolute", (top / ".one/skills").string())};
  skillFolder(top / ".one/skills/a");
  skillFolder(top / "p" / "a");
  EXPECT_EQ(scanned(), Texts{});
}

TEST_F(ProjectScannerTest, LinksLeadNowhereButToAgentsFoldersBelowTheRoot) {
  skillFolder(top / "p" / ".one/skills/a");
  skillFolder(elsewhere / ".one/skills/a");
  fs::create_directory_symlink(elsewhere, top / "to elsewhere");
  fs::create_directory_symlink("p", top / "again");
  fs::create_directory_symlink("..", top / "p" / "loop");
  fs::create_directory_symlink(".one", top / "p" / ".two");
  fs::create_symlink(".one", top / ".one");
  fs::create_directories(top / "leaves");
  fs::create_directory_symlink(elsewhere / ".one", top / "leaves" / ".one");
  fs::create_directories(top / "stays");
  fs::create_directory_symlink("../p/.one", top / "stays" / ".two");
  EXPECT_EQ(scanned(), (Texts{"p: one, 1", "stays: two, 1"}));
}

TEST_F(ProjectScannerTest, ARootThatIsALinkKeepsItsName) {
  skillFolder(elsewhere / "p" / ".one/skills/a");
  fs::create_directory_symlink(elsewhere, root / "link");
  scope.known = {elsewhere / "p"};
  const auto found = ProjectScanner::scanProjects(root / "link" / "", 3, agents, scope, {});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0], (ScannedProject{(root / "link" / "p").string(), "p", {"one"}, 1, true}));
}

TEST_F(ProjectScannerTest, WhatCannotBeReadIsPassedOverButTheRootIsNot) {
  skillFolder(top / "p" / ".one/skills/a");
  skillFolder(top / "locked" / "q" / ".one/skills/a");
  asOrdinaryUser([&] {
    fs::permissions(top / "locked", fs::perms::none);
    EXPECT_EQ(scanned(100), Texts{"p: one, 1"});
    const auto scan = [&](const Path& path) {
      return errorOf([&] { (void)ProjectScanner::scanProjects(path, 3, agents, scope, {}); });
    };
    EXPECT_THAT(scan(top / "locked"), IsError(SkillsError::Kind::io, "locked"));
    EXPECT_THAT(scan(top / "absent"), IsError(SkillsError::Kind::notFound, "absent"));
    EXPECT_THAT(scan(top / "a file"), IsError(SkillsError::Kind::invalidInput, "a file"));
  });
}

TEST_F(ProjectScannerTest, AWideTreeIsScannedWholeAndAStopReturnsWhatWasFound) {
  constexpr std::size_t kProjects = 700;
  for (std::size_t i = 0; i < kProjects; ++i) skillFolder(top / fmt::format("{}/{}/.one/skills/a", i % 7, i));
  std::stop_source stop;
  std::vector<std::size_t> reported;
  OperationContext context{stop.get_token(), [&](const Progress& progress) {
                             EXPECT_EQ(progress.what, "Scanning");
                             reported.push_back(progress.done);
                           }};
  EXPECT_EQ(scanned(20, context).size(), kProjects);
  EXPECT_FALSE(reported.empty());
  EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end()));

  context.progress = [&](const Progress&) { stop.request_stop(); };
  const std::size_t found = scanned(20, context).size();
  EXPECT_GT(found, 0U);
  EXPECT_LT(found, kProjects);
  context.progress = [](const Progress&) { throw SkillsError::io("from outside"); };
  context.stop = {};
  EXPECT_THAT(errorOf([&] { (void)scanned(20, context); }), IsError(SkillsError::Kind::io, "from outside"));
}

}  // namespace
}  // namespace orvanta
