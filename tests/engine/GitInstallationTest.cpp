// Skills from Git repositories: seeing and installing them, and what a hostile repository cannot do.

#include "files/FS.h"
#include "tests/support/GitServer.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using Action = PlannedStep::Action;
using Texts = std::vector<std::string>;

class GitInstallationTest : public Sandbox {
 protected:
  static std::string skill(const std::string& name) { return "---\nname: " + name + "\ndescription: A\n---\n"; }

  std::string published() {
    return server.commit("o/r", {{"README.md", "x"},
                                 {"skills/pdf/SKILL.md", skill("pdf")},
                                 {"skills/pdf/tool.sh", "run"},
                                 {"skills/docx/SKILL.md", skill("docx")}});
  }
  Texts pathsIn(const std::string& url) {
    Texts found;
    for (const auto& each : engine().previewGit(url, {}).skills) found.push_back(each.relativePath);
    return found;
  }

  GitServer server{root / "server"};
};

TEST_F(GitInstallationTest, ARepositoryIsSeenAndInstalledInPartAndInWhole) {
  const std::string revision = published();
  engine();
  const std::string before = everythingAsText();
  const GitPreview preview = engine().previewGit("o/r", {});
  EXPECT_EQ(preview.revision, revision);
  EXPECT_EQ(preview.cloneURL, "https://github.com/o/r.git");
  EXPECT_EQ(preview.skills,
            (std::vector<GitPreviewSkill>{{"skills/docx", "docx", "A", false}, {"skills/pdf", "pdf", "A", false}}));
  const GitChoice choice{.relativePaths = Texts{"skills/pdf", "nope"}, .name = {}};
  const Plan plan = engine().planInstallGit("o/r", choice, {});
  ASSERT_EQ(plan.size(), 2U);
  EXPECT_EQ(plan[0].action, Action::place);
  EXPECT_EQ(plan[1].reason, "'nope' is not a skill directory in the repository");
  EXPECT_EQ(everythingAsText(), before) << "looking changes nothing";

  const InstallReport part = engine().installGit("o/r", choice, {});
  EXPECT_EQ(part.errors, Texts{"'nope' is not a skill directory in the repository"});
  ASSERT_EQ(part.installed.size(), 1U);
  const SkillRecord& pdf = part.installed[0].record;
  EXPECT_EQ(pdf.sourceType, SourceType::git);
  EXPECT_EQ(pdf.sourceRef, "o/r");
  EXPECT_EQ(pdf.sourceRefResolved, "https://github.com/o/r.git");
  EXPECT_EQ(pdf.sourceSubpath, "skills/pdf");
  EXPECT_EQ(pdf.sourceRevision, revision);
  EXPECT_EQ(read(paths.skills() / "pdf" / "tool.sh"), "run");
  EXPECT_TRUE(engine().previewGit(server.url("o/r"), {}).skills[1].alreadyInstalled == false) << "another address";
  EXPECT_TRUE(engine().previewGit("https://github.com/o/r/", {}).skills[1].alreadyInstalled);

  const InstallReport whole = engine().installGit("o/r", {}, {});
  EXPECT_EQ(whole.installed.size(), 2U);
  EXPECT_EQ(whole.reusedIds, Texts{pdf.id});
  EXPECT_EQ(engine().auditEntries(1, 0).front().action, "install_git");
  EXPECT_TRUE(fs::is_empty(user.temp));
}

TEST_F(GitInstallationTest, ALinkIntoATreeIsABranchAndAFolder) {
  published();
  server.commit("o/r", {{"skills/pdf/SKILL.md", skill("pdf")}, {"skills/pdf/beta", "x"}}, "beta");
  EXPECT_EQ(pathsIn("https://github.com/o/r/tree/beta/skills/pdf"), Texts{"."});
  const auto installed =
      engine().installGit("https://github.com/o/r/tree/beta/skills", {.relativePaths = Texts{"pdf"}}, {});
  EXPECT_EQ(installed.installed.at(0).record.sourceBranch, "beta");
  EXPECT_EQ(installed.installed.at(0).record.sourceSubpath, "skills/pdf");
  EXPECT_TRUE(fs::exists(paths.skills() / "pdf" / "beta"));
  for (const auto* missing : {"tree/main/nowhere", "tree/main/README.md", "tree/main/../.."}) {
    EXPECT_THAT(errorOf([&] { engine().previewGit(std::string("https://github.com/o/r/") + missing, {}); }),
                IsError(Kind::notFound, "does not exist in the repository"));
  }
  EXPECT_THAT(errorOf([&] { engine().installGit("https://github.com/o/r/tree/gone", {}, {}); }).kind(), Kind::git);
  EXPECT_THAT(errorOf([&] { engine().installGit("./skills", {}, {}); }), IsError(Kind::invalidInput, "URL scheme"));
}

TEST_F(GitInstallationTest, ARepositoryThatIsASkillItselfIsCalledLikeIt) {
  server.commit("o/tool", {{"SKILL.md", "no front matter"}, {"run", "x"}});
  const auto report = engine().installGit("o/tool", {}, {});
  EXPECT_EQ(report.installed.at(0).record.name, "tool");
  EXPECT_EQ(report.installed.at(0).record.sourceSubpath, std::nullopt);
  EXPECT_FALSE(fs::exists(paths.skills() / "tool" / ".git"));
  server.commit("o/empty", {{"README", "x"}});
  EXPECT_THAT(errorOf([&] { engine().installGit("o/empty", {}, {}); }),
              IsError(Kind::notFound, "No SKILL.md found in the repository"));
}

TEST_F(GitInstallationTest, NothingOutsideOfACheckoutIsReadOrKept) {
  skillFolder(home / "private", {{"key", "secret"}});
  server.commit("o/r", {{"skills/pdf/SKILL.md", skill("pdf")}, {"skills/pdf/data", "own"}});
  const Path pdf = server.folder("o/r") / "skills" / "pdf";
  fs::create_symlink(home / "private" / "key", pdf / "absolute");
  fs::create_symlink("../../README", pdf / "upwards");
  fs::create_symlink("data", pdf / "inner");
  // These lead nowhere in a checkout, and to what the user has from the library, or to another skill there.
  fs::create_symlink("../../../home/private/key", pdf / "dangling");
  fs::create_symlink(".", pdf / "here");
  fs::create_symlink("here/../../../../home/private/key", pdf / "through a link");
  fs::create_symlink("../pdf/data", pdf / "by its own name");
  fs::create_directory_symlink(home / "private", server.folder("o/r") / "skills" / "stolen");
  server.commit("o/r", {{"README", "x"}});
  EXPECT_EQ(pathsIn("o/r"), Texts{"skills/pdf"});
  const auto report =
      engine().installGit("o/r", {.relativePaths = Texts{"skills/pdf", "skills/stolen", "../../..", "/"}}, {});
  EXPECT_EQ(report.errors.size(), 3U);
  ASSERT_EQ(report.installed.size(), 1U);
  EXPECT_EQ(read(paths.skills() / "pdf" / "inner"), "own");
  EXPECT_EQ(read(paths.skills() / "pdf" / "here" / "data"), "own");
  for (const auto* outward : {"absolute", "upwards", "dangling", "through a link", "by its own name"}) {
    EXPECT_FALSE(FS::exists(paths.skills() / "pdf" / outward)) << outward;
  }
}

TEST_F(GitInstallationTest, CredentialsInAnAddressAreUsedAndKeptNowhere) {
  server.commit("private/r", {{"pdf/SKILL.md", skill("pdf")}});
  std::string url = server.url("private/r");
  url.insert(url.find("://") + 3, "reader:p%40ss%2Fword@");
  Texts traced;
  const OperationContext context{.trace = [&](std::string_view line) { traced.emplace_back(line); }};
  const auto preview = engine().previewGit(url, context);
  const auto report = engine().installGit(url, {}, context);
  EXPECT_EQ(report.installed.at(0).record.sourceRef, server.url("private/r"));
  EXPECT_EQ(preview.originalURL, server.url("private/r"));
  server.stop();
  traced.push_back(errorOf([&] { engine().installGit(url, {}, context); }).message());
  traced.push_back(everythingAsText() + sql("SELECT * FROM audit_log"));
  for (const auto& text : traced) EXPECT_EQ(text.find("ss%2Fword"), std::string::npos) << text;
  EXPECT_GE(traced.size(), 6U);
}

}  // namespace
}  // namespace orvanta
