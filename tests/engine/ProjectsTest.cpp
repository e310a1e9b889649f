// Workspaces: registering them, comparing their skills with the library, and moving skills both ways without losing
// anything that belongs to the project.

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <chrono>

#include "files/FS.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Action = PlannedStep::Action;
using Status = ProjectSyncStatus;
using namespace std::chrono_literals;

class ProjectsTest : public Sandbox {
 protected:
  ProjectsTest() {
    for (const auto* agent : {"cursor", "claude_code"}) agentInstalled(agent);
    fs::create_directories(project);
  }

  std::string added() { return engine().addProject(project, {}).id; }

  ApplyReport exported(const std::string& id, const std::vector<std::string>& skills, SyncMode mode = SyncMode::copy,
                       bool force = false) {
    return engine().exportToProject(id, {.skillIds = skills, .agents = {"cursor"}, .mode = mode, .force = force}, {});
  }

  ProjectSkill only(const std::string& id) {
    const auto skills = engine().projectSkills(id, {});
    EXPECT_EQ(skills.size(), 1U);
    return skills.empty() ? ProjectSkill{} : skills.front();
  }

  // Everything below the folder was last changed at this time.
  static void changedAt(const Path& folder, std::chrono::milliseconds time) {
    const timespec at{.tv_sec = time.count() / 1000, .tv_nsec = time.count() % 1000 * 1'000'000};
    const std::array<timespec, 2> times{at, at};
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      EXPECT_EQ(::utimensat(AT_FDCWD, entry.path().c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0);
    }
  }

  const Path project = home / "work" / "app";
  const Path cursor = project / ".cursor" / "skills";
  const std::string pdf = installed("pdf", {{"data", "one"}});
};

TEST_F(ProjectsTest, AFolderIsRegisteredOnceAndItsFilesAreLeftAlone) {
  skillFolder(cursor / "own");
  const std::string before = folderAsText(home);
  const ProjectRecord record = engine().addProject(home / "work" / ".." / "work" / "app" / "", "  ");
  EXPECT_EQ(record.name, "app");
  EXPECT_EQ(record.path, project.string());
  fs::create_directory_symlink(project, root / "alias");
  for (const auto& path : {project, root / "alias"}) {
    EXPECT_THAT(errorOf([&] { engine().addProject(path, {}); }), IsError(Kind::conflict, "Workspace already added"));
  }
  EXPECT_THAT(errorOf([&] { engine().addProject(home / "nowhere", {}); }), IsError(Kind::notFound, "nowhere"));
  EXPECT_THAT(errorOf([&] { engine().addProject(paths.skills(), {}); }),
              IsError(Kind::invalidInput, "inside the library"));
  EXPECT_NO_THROW(engine().addProject(cursor, "a project inside"));
  engine().removeProject(record.id);
  EXPECT_EQ(engine().projectRecords().size(), 1U);
  EXPECT_EQ(folderAsText(home), before);
}

TEST_F(ProjectsTest, TheSideThatChangedLastIsTheNewerOne) {
  const std::string id = added();
  exported(id, {pdf});
  EXPECT_EQ(only(id).syncStatus, Status::inSync);
  write(cursor / "pdf" / "data", "two");
  const auto now = 1'800'000'000'000ms;
  const std::vector<std::pair<std::chrono::milliseconds, Status>> table{{1001ms, Status::projectNewer},
                                                                        {1000ms, Status::diverged},
                                                                        {-1000ms, Status::diverged},
                                                                        {-1001ms, Status::centerNewer}};
  changedAt(paths.skills() / "pdf", now);
  for (const auto& [later, status] : table) {
    changedAt(cursor / "pdf", now + later);
    EXPECT_EQ(only(id).syncStatus, status) << later.count();
  }
  skillFolder(project / ".claude" / "skills" / "own");
  skillFolder(project / ".claude" / "skills-disabled" / "off");
  const ProjectInfo info = engine().projects({}).front();
  EXPECT_EQ(info.skillCount, 3);
  EXPECT_EQ(info.health, (SyncHealth{.centerNewer = 1, .projectOnly = 2}));
  EXPECT_EQ(info.health.needsAttention(), 1);
  fs::remove_all(project);
  EXPECT_FALSE(engine().projects({}).front().exists);
}

TEST_F(ProjectsTest, ASkillIsKnownByItsNameItsContentOrItsLink) {
  const std::string id = added();
  const std::string twin = engine().installLocal(givenSkill("pdf", {{"data", "other"}}), {}).record.id;
  skillFolder(cursor / "pdf", {{"data", "other"}});
  EXPECT_EQ(only(id).centerSkillId, twin) << "of two with the name, the one with the content";
  engine().updateSkillInfo(pdf, "Renamed", {});
  engine().removeSkill(twin, true);
  EXPECT_EQ(only(id).centerSkillId, pdf) << "by its folder, which still calls itself so";
  fs::remove_all(cursor);
  exported(id, {pdf}, SyncMode::symlink);
  const ProjectSkill link = only(id);
  EXPECT_TRUE(link.isSymlink && link.inCenter);
  EXPECT_EQ(link.syncStatus, Status::inSync);
}

TEST_F(ProjectsTest, WhatAgentsShareIsListedOnceForTheFirstActiveAgent) {
  const std::string id = added();
  skillFolder(project / ".agents" / "skills" / "shared");
  const std::string inactive = only(id).agent;
  agentInstalled("warp");
  EXPECT_EQ(only(id).agent, "warp");
  EXPECT_NE(inactive, "warp");
  engine().setToolEnabled("warp", false);
  EXPECT_EQ(only(id).agent, inactive);
  fs::create_directories(project / ".cursor");
  fs::create_directory_symlink("../.agents/skills", cursor);
  EXPECT_EQ(only(id).agent, "cursor") << "also by way of a link";
  EXPECT_EQ(engine().exportToProject(id, {.skillIds = {pdf}, .agents = {"cursor", "warp"}, .mode = SyncMode::copy}, {}),
            (ApplyReport{.deployed = 1, .removed = 0, .skipped = 1, .errors = {}}));
}

TEST_F(ProjectsTest, ExportingReplacesNothingUnlessAsked) {
  const std::string id = added();
  const Path own = skillFolder(cursor / "pdf", {{"mine", "precious"}});
  const std::string before = everythingAsText();
  const ProjectExport request{.skillIds = {pdf}, .agents = {"cursor"}};
  EXPECT_EQ(engine().planExportToProject(id, request).front().action, Action::refused);
  EXPECT_EQ(exported(id, {pdf}).errors,
            (std::vector<std::string>{"pdf → Cursor: Refusing to replace \"" + own.string() +
                                      "\". The existing content was left untouched — import it into the library, or "
                                      "move it aside, and try again."}));
  EXPECT_EQ(everythingAsText(), before);
  EXPECT_EQ(exported(id, {pdf}, SyncMode::copy, true).deployed, 1);
  EXPECT_FALSE(fs::exists(own / "mine"));
  EXPECT_EQ(exported(id, {pdf}).skipped, 1) << "the same content is no obstacle";
  fs::remove_all(cursor);
  EXPECT_EQ(exported(id, {pdf}, SyncMode::symlink).deployed, 1);
  EXPECT_EQ(exported(id, {pdf}).deployed, 1) << "a link to the library becomes a copy";
  EXPECT_EQ(FS::kind(own), FS::Kind::directory);
  engine().setSkillEnabled(pdf, false);
  const auto refused = engine().exportToProject(id, {.skillIds = {pdf, "gone"}, .agents = {"cursor", "nobody"}}, {});
  EXPECT_EQ(refused.errors.size(), 4U);
}

TEST_F(ProjectsTest, PushAndPullCarryTheWholeSkillOver) {
  const std::string id = added();
  exported(id, {pdf});
  engine().setSyncMode(SyncMode::copy);
  engine().deploy(pdf, "claude_code", false);
  const Path copy = cursor / "pdf";
  write(copy / "SKILL.md", "---\nname: pdf\ndescription: new words\n---\n");
  write(copy / "tool", "run", 0755);
  fs::remove(copy / "data");
  const std::string before = folderAsText(project);
  const auto plan = engine().planUpdateCenterFromProject(id, copy);
  EXPECT_EQ(plan.size(), 2U) << "the library's folder and the deployed copy";
  const SkillSummary pushed = engine().updateCenterFromProject(id, copy);
  EXPECT_EQ(pushed.record.description, "new words");
  EXPECT_EQ(folderAsText(project), before);
  EXPECT_EQ(read(placeOf("claude_code", "pdf") / "tool"), "run");
  EXPECT_FALSE(fs::exists(placeOf("claude_code", "pdf") / "data"));
  EXPECT_EQ(only(id).syncStatus, Status::inSync);
  EXPECT_EQ(engine().repairDeployments({}).skipped, 1);

  write(paths.skills() / "pdf" / "more", "x");
  fs::remove(paths.skills() / "pdf" / "tool");
  EXPECT_EQ(engine().planUpdateProjectSkillFromCenter(id, copy).front().action, Action::replace);
  engine().updateProjectSkillFromCenter(id, copy);
  EXPECT_EQ(only(id).syncStatus, Status::inSync);
  EXPECT_TRUE(fs::exists(copy / "more") && !fs::exists(copy / "tool"));
  EXPECT_TRUE(fs::is_empty(user.temp));
  EXPECT_EQ(engine().auditEntries(1, 0).front().action, "project_pull_from_center");
}

TEST_F(ProjectsTest, LinksIntoTheLibraryAreLeftAloneAndOthersAreNeverWrittenThrough) {
  const std::string id = added();
  exported(id, {pdf}, SyncMode::symlink);
  const std::string before = everythingAsText();
  engine().updateProjectSkillFromCenter(id, cursor / "pdf");
  engine().updateCenterFromProject(id, cursor / "pdf");
  EXPECT_EQ(engine().planUpdateCenterFromProject(id, cursor / "pdf").front().action, Action::keep);
  EXPECT_EQ(everythingAsText(), before);
  engine().deleteProjectSkill(id, cursor / "pdf");
  EXPECT_FALSE(FS::exists(cursor / "pdf"));
  EXPECT_EQ(read(paths.skills() / "pdf" / "data"), "one");

  const Path outside = skillFolder(root / "outside" / "pdf", {{"precious", "work"}});
  fs::create_directory_symlink(outside, cursor / "pdf");
  EXPECT_THAT(errorOf([&] { engine().updateProjectSkillFromCenter(id, cursor / "pdf"); }),
              IsError(Kind::refused, (cursor / "pdf").string() + " is not managed by Orvanta"));
  engine().deleteProjectSkill(id, cursor / "pdf");
  fs::remove_all(project / ".cursor");
  fs::create_directory_symlink(root / "outside", project / ".cursor");
  fs::create_directory(root / "outside" / "skills");
  skillFolder(root / "outside" / "skills" / "pdf", {{"precious", "work"}});
  const std::string outsideBefore = folderAsText(root / "outside");
  EXPECT_TRUE(engine().projectSkills(id, {}).empty());
  EXPECT_EQ(exported(id, {pdf}, SyncMode::copy, true).errors.size(), 1U);
  const std::vector<std::function<void()>> operations{
      [&] { engine().updateProjectSkillFromCenter(id, cursor / "pdf"); },
      [&] { engine().setProjectSkillEnabled(id, cursor / "pdf", false); },
      [&] { engine().deleteProjectSkill(id, cursor / "pdf"); }};
  for (const auto& operation : operations) {
    EXPECT_THAT(errorOf(operation), IsError(Kind::refused, "is not a skill inside workspace 'app'"));
  }
  EXPECT_EQ(folderAsText(root / "outside"), outsideBefore);
}

TEST_F(ProjectsTest, OnlySkillsInsideTheWorkspaceCanBeNamed) {
  const std::string id = added();
  exported(id, {pdf});
  write(project / "src" / "SKILL.md", "---\nname: src\n---\n");
  skillFolder(cursor / "pdf" / "inner");
  fs::create_directories(cursor / "no skill");
  const std::string before = everythingAsText();
  for (const Path& path :
       {project / "src", cursor / "pdf" / "inner", cursor / "no skill", cursor / "gone", home / ".cursor",
        cursor / ".." / ".." / "src", cursor / "pdf" / ".." / "..", Path("pdf"), Path("")}) {
    EXPECT_THAT(errorOf([&] { engine().deleteProjectSkill(id, path); }).kind(), Kind::refused) << path;
    EXPECT_EQ(engine().planDeleteProjectSkill(id, path).front().action, Action::refused) << path;
  }
  EXPECT_THAT(errorOf([&] { engine().deleteProjectSkill(id, cursor); }),
              IsError(Kind::refused, "Cannot determine the agent folder for "));
  EXPECT_EQ(everythingAsText(), before);
  EXPECT_NO_THROW(engine().deleteProjectSkill(id, cursor / "x" / ".." / "pdf" / ""));
}

TEST_F(ProjectsTest, DisablingMovesASkillAsideAndBackAndOverwritesNothing) {
  const std::string id = added();
  exported(id, {pdf});
  const std::string before = folderAsText(project);
  const Path aside = project / ".cursor" / "skills-disabled" / "pdf";
  engine().setProjectSkillEnabled(id, cursor / "pdf", false);
  EXPECT_EQ(only(id).path, aside.string());
  EXPECT_FALSE(only(id).enabled);
  skillFolder(cursor / "pdf", {{"second", "life"}});
  const std::string both = folderAsText(project);
  for (const bool enabled : {true, false}) {
    const auto error = errorOf([&] { engine().setProjectSkillEnabled(id, enabled ? aside : cursor / "pdf", enabled); });
    EXPECT_THAT(error, IsError(Kind::conflict, aside.string()));
    EXPECT_THAT(error, IsError(Kind::conflict, (cursor / "pdf").string()));
  }
  EXPECT_EQ(folderAsText(project), both);
  fs::remove_all(cursor / "pdf");
  engine().setProjectSkillEnabled(id, aside, true);
  engine().setProjectSkillEnabled(id, cursor / "pdf", true);
  EXPECT_EQ(folderAsText(project), before);

  fs::create_directory(project / "off");
  fs::create_directory_symlink("../off", aside.parent_path());
  const std::string linked = folderAsText(project);
  engine().setProjectSkillEnabled(id, cursor / "pdf", false);
  engine().setProjectSkillEnabled(id, aside, true);
  EXPECT_EQ(folderAsText(project), linked) << "a link to a folder of disabled skills is not ours";
}

TEST_F(ProjectsTest, WhatTheOtherSideWouldLoseIsRefused) {
  const std::string id = added();
  exported(id, {pdf});
  write(cursor / "pdf" / "sub" / ".git" / "HEAD", "ref");
  write(cursor / "pdf" / "data", "two");
  EXPECT_THAT(errorOf([&] { engine().updateProjectSkillFromCenter(id, cursor / "pdf"); }),
              IsError(Kind::refused, "sub/.git"));
  write(paths.skills() / "pdf" / ".git" / "HEAD", "ref");
  EXPECT_THAT(errorOf([&] { engine().updateCenterFromProject(id, cursor / "pdf"); }), IsError(Kind::refused, ".git"));
  skillFolder(cursor / "own");
  EXPECT_THAT(errorOf([&] { engine().updateCenterFromProject(id, cursor / "own"); }),
              IsError(Kind::notFound, "No library skill matches own; import it instead"));
  const auto imported = engine().importProjectSkill(id, cursor / "own", {});
  EXPECT_EQ(imported.record.sourceType, SourceType::imported);
  EXPECT_EQ(imported.record.sourceRef, (cursor / "own").string());
  fs::remove_all(project);
  for (const auto& operation : std::vector<std::function<void()>>{
           [&] { exported(id, {pdf}); }, [&] { engine().updateProjectSkillFromCenter(id, cursor / "pdf"); }}) {
    EXPECT_THAT(errorOf(operation), IsError(Kind::notFound, "is missing"));
  }
  EXPECT_FALSE(fs::exists(project));
}

TEST_F(ProjectsTest, ALinkedWorkspaceKeepsTheRecordsOfDeploymentsTrue) {
  const std::string id = engine().addLinkedWorkspace("cursor").id;
  EXPECT_THAT(errorOf([&] { engine().addLinkedWorkspace("cursor"); }),
              IsError(Kind::conflict, "Cursor is already linked"));
  EXPECT_THAT(errorOf([&] { engine().addLinkedWorkspace("codex"); }), IsError(Kind::refused, "not installed"));
  const Path own = agentHas("cursor", "own");
  EXPECT_EQ(exported(id, {pdf}).deployed, 1);
  EXPECT_EQ(engine().summary(pdf).targets.front().mode, SyncMode::copy);
  const Path copy = placeOf("cursor", "pdf");
  EXPECT_THAT(errorOf([&] { engine().setProjectSkillEnabled(id, copy, false); }),
              IsError(Kind::refused, "undeploy it instead, or disable the skill"));
  write(copy / "data", "edited");
  engine().updateProjectSkillFromCenter(id, copy);
  EXPECT_EQ(read(copy / "data"), "one");
  write(copy / "data", "two");
  engine().updateCenterFromProject(id, copy);
  EXPECT_EQ(read(paths.skills() / "pdf" / "data"), "two");
  EXPECT_EQ(engine().repairDeployments({}).skipped, 1);
  engine().deleteProjectSkill(id, copy);
  EXPECT_TRUE(engine().summary(pdf).targets.empty());
  EXPECT_FALSE(FS::exists(copy));
  engine().setProjectSkillEnabled(id, own, false);
  EXPECT_TRUE(fs::exists(home / ".cursor" / "skills-disabled" / "own"));
  engine().deleteProjectSkill(id, home / ".cursor" / "skills-disabled" / "own");
  EXPECT_TRUE(engine().projectSkills(id, {}).empty());
}

TEST_F(ProjectsTest, ARepositoryInADeployedCopyOutlivesPushesAndRepairs) {
  engine().setSyncMode(SyncMode::copy);
  engine().deploy({pdf}, {"cursor", "claude_code"}, false, {});
  const std::string id = engine().addLinkedWorkspace("cursor").id;
  for (const auto* agent : {"cursor", "claude_code"}) write(placeOf(agent, "pdf") / ".git" / "HEAD", "ref");
  write(placeOf("cursor", "pdf") / "data", "two");
  std::map<std::string, std::string> statuses;
  for (const auto& target : engine().updateCenterFromProject(id, placeOf("cursor", "pdf")).targets) {
    statuses[target.tool] = target.status;
  }
  EXPECT_EQ(statuses, (std::map<std::string, std::string>{{"cursor", "ok"}, {"claude_code", "error"}}));
  EXPECT_EQ(engine().repairDeployments({}).errors.size(), 1U);
  EXPECT_EQ(engine().deploy({pdf}, {"claude_code"}, false, {}).errors.size(), 1U);
  for (const auto* agent : {"cursor", "claude_code"}) EXPECT_TRUE(fs::exists(placeOf(agent, "pdf") / ".git")) << agent;
}

TEST_F(ProjectsTest, WhatTookADeploymentsPlaceIsNotTakenForIt) {
  const std::string id = engine().addLinkedWorkspace("cursor").id;
  engine().deploy(pdf, "cursor", false);
  const Path place = placeOf("cursor", "pdf");
  fs::remove(place);
  agentHas("cursor", "pdf", {{"data", "mine"}});
  const std::string before = everythingAsText();
  EXPECT_EQ(engine().planDeleteProjectSkill(id, place).front().action, Action::refused);
  EXPECT_THAT(errorOf([&] { engine().deleteProjectSkill(id, place); }),
              IsError(Kind::refused, "not what was deployed"));
  EXPECT_EQ(everythingAsText(), before);
  engine().updateProjectSkillFromCenter(id, place);
  EXPECT_EQ(engine().summary(pdf).targets.front().mode, SyncMode::copy);
  EXPECT_EQ(engine().repairDeployments({}).skipped, 1);
  EXPECT_TRUE(engine().undeploy(pdf, "cursor").changed);
  EXPECT_FALSE(FS::exists(place));
}

TEST_F(ProjectsTest, AHomeThatIsAProjectKeepsItsAgentsFoldersOutOfExports) {
  const std::string id = engine().addProject(home, {}).id;
  EXPECT_THAT(exported(id, {pdf}).errors.front(), testing::HasSubstr("the global skills folder of Cursor"));
  engine().deploy(pdf, "cursor", false);
  EXPECT_THAT(errorOf([&] { engine().setProjectSkillEnabled(id, placeOf("cursor", "pdf"), false); }),
              IsError(Kind::refused, "is managed by Orvanta"));
}

TEST_F(ProjectsTest, TheLibraryIsNobodysWorkspace) {
  engine().setToolProjectPath("claude_code", "store/skills");
  fs::create_directory_symlink(paths.base(), project / "store");
  fs::create_directories(project / ".cursor");
  fs::create_directory_symlink(paths.skills(), cursor);
  const std::string id = added();
  const std::string linked = engine().addLinkedWorkspace("cursor").id;
  fs::create_directory_symlink(paths.skills(), home / ".cursor" / "skills");
  const std::string before = everythingAsText();
  for (const auto& workspace : {id, linked}) {
    EXPECT_TRUE(engine().projectSkills(workspace, {}).empty());
    for (const Path& path : {cursor / "pdf", project / "store" / "skills" / "pdf", home / ".cursor" / "skills" / "pdf",
                             paths.skills() / "pdf"}) {
      EXPECT_EQ(errorOf([&] { engine().deleteProjectSkill(workspace, path); }).kind(), Kind::refused);
      EXPECT_EQ(errorOf([&] { engine().setProjectSkillEnabled(workspace, path, false); }).kind(), Kind::refused);
    }
  }
  EXPECT_EQ(everythingAsText(), before);
}

TEST_F(ProjectsTest, APublisherOfAProjectDoesNotChooseWhatIsReadOrOverwritten) {
  const std::string id = added();
  installed("doc");
  write(skillFolder(cursor / "pdf") / "SKILL.md", "---\nname: doc\n---\n");
  EXPECT_THAT(errorOf([&] { engine().updateCenterFromProject(id, cursor / "pdf"); }),
              IsError(Kind::conflict, "calls itself 'doc'"));
  skillFolder(home / "private" / "notes", {{"key", "secret"}});
  fs::create_directory_symlink(home / "private" / "notes", cursor / "notes");
  EXPECT_THAT(errorOf([&] { engine().importProjectSkill(id, cursor / "notes", {}); }),
              IsError(Kind::refused, "leads out of the workspace"));

  engine().setToolPath("claude_code", (cursor / "cat").string());
  engine().deploy(pdf, "claude_code", false);
  write(cursor / "cat" / "SKILL.md", "---\nname: cat\n---\n");
  const std::string cat = installed("cat");
  EXPECT_THAT(exported(id, {cat}, SyncMode::copy, true).errors.front(), testing::HasSubstr("holds the deployment"));
  write(cursor / "doc" / ".git" / "HEAD", "ref");
  EXPECT_THAT(exported(id, {engine().skills()[1].id}, SyncMode::copy, true).errors.front(),
              testing::HasSubstr("holds a Git repository"));
}

TEST_F(ProjectsTest, ACopyThatCouldNotFollowAPushFollowsTheNextOne) {
  const std::string id = added();
  exported(id, {pdf});
  engine().setSyncMode(SyncMode::copy);
  engine().deploy(pdf, "claude_code", false);
  const Path copy = placeOf("claude_code", "pdf");
  fs::rename(copy, root / "aside");
  write(copy, "in the way");
  write(cursor / "pdf" / "data", "two");
  EXPECT_EQ(engine().updateCenterFromProject(id, cursor / "pdf").targets.front().status, kTargetError);
  EXPECT_EQ(read(copy), "in the way");
  fs::remove(copy);
  fs::rename(root / "aside", copy);
  EXPECT_EQ(engine().planUpdateCenterFromProject(id, cursor / "pdf").size(), 2U);
  EXPECT_EQ(engine().updateCenterFromProject(id, cursor / "pdf").targets.front().status, kTargetOk);
  EXPECT_EQ(read(copy / "data"), "two");
}

TEST_F(ProjectsTest, AScanFindsProjectsButNeitherTheLibraryNorAgentsOwnFolders) {
  agentHas("cursor", "global");
  const std::string id = added();
  exported(id, {pdf});
  skillFolder(home / "work" / "other" / ".claude" / "skills" / "x");
  const auto found = engine().scanForProjects(home, 8, {});
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0], (ScannedProject{project.string(), "app", {"cursor"}, 1, true}));
  EXPECT_EQ(found[1].name, "other");
  EXPECT_FALSE(found[1].alreadyAdded);
}

}  // namespace
}  // namespace orvanta
