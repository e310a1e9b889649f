// Moving the library: it arrives whole or stays as it was, and nobody's files are lost on the way.

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "engine/MoveJournal.h"
#include "engine/MoveRecovery.h"
#include "files/FS.h"
#include "files/TemporaryFolder.h"
#include "foundations/ModelsJSON.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Kind = SkillsError::Kind;
using Texts = std::vector<std::string>;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class RelocationTest : public Sandbox {
 protected:
  // Two skills at three agents, one of them as a copy; in the library what copying skills leaves out or changes.
  void givenLibrary() {
    for (const auto* agent : {"cursor", "claude_code", "cline"}) agentInstalled(agent);
    const Texts ids{installed("pdf", {{"run.sh", "#!"}}), installed("csv")};
    engine().deploy(ids, {"cursor", "claude_code"}, false, {});
    engine().setSyncMode(SyncMode::copy);
    engine().deploy(ids, {"cline"}, false, {});
    const Path pdf = paths.skills() / "pdf";
    ASSERT_EQ(::chmod((pdf / "run.sh").c_str(), 0751), 0);
    ASSERT_EQ(::chmod(paths.base().c_str(), 0700), 0);
    ASSERT_EQ(::chmod(paths.database().c_str(), 0600), 0);
    write(paths.skills() / ".git/refs/heads/main", "abc", 0444);
    write(paths.skills() / ".DS_Store", "finder");
    fs::create_directories(pdf / "empty");
    fs::create_symlink("nowhere", pdf / "dangling");
    fs::create_symlink("SKILL.md", pdf / "inside");
    write(paths.logs() / "old.log", "log");
    write(paths.bin() / "tool", "#!", 0700);
    ASSERT_EQ(::chmod((paths.skills() / ".git/refs").c_str(), 02555), 0);
    engine().repairDeployments({});
    const timespec times[2] = {{1'000'000'000, 5}, {1'100'000'000, 7}};
    for (const auto& path : {pdf / "run.sh", pdf / "dangling", pdf / "empty", paths.logs() / "old.log"}) {
      ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
  }

  // What a library's folders hold, times and permissions included, wherever they are.
  static std::string contentOf(const Path& base) {
    std::string text;
    for (const auto* name : {"skills", "cache", "logs", "bin"}) {
      text += folderAsText(base / name);
      std::set<std::string> times;
      for (const auto& entry : fs::recursive_directory_iterator(base / name)) {
        struct stat status {};
        EXPECT_EQ(::lstat(entry.path().c_str(), &status), 0);
        const bool counts = status.st_mtim.tv_sec == 1'100'000'000;
        if (counts)
          times.insert(entry.path().lexically_relative(base).string() + " " + std::to_string(status.st_mtim.tv_nsec) +
                       "\n");
      }
      for (const auto& line : times) text += line;
    }
    return text;
  }

  Texts actionsOf(SkillsEngine& at) {
    Texts names;
    for (const auto& entry : at.auditEntries(3, 0)) names.push_back(entry.action + " " + entry.detail.value_or(""));
    return names;
  }

  void arrivesWhole(const Path& destination) {
    givenLibrary();
    const std::string before = contentOf(paths.base());
    const std::string copy = folderAsText(placeOf("cline", "pdf"));
    const Paths& oldPaths = engine().paths();
    const auto report = engine().relocateLibrary(destination, {});
    EXPECT_TRUE(report.moved && report.errors.empty()) << testing::PrintToString(report.errors);
    EXPECT_EQ(report.relinked, 4U);
    EXPECT_EQ(oldPaths, paths);
    EXPECT_EQ(engine().paths(), Paths(destination));
    EXPECT_EQ(contentOf(destination), before);
    EXPECT_EQ(fs::status(destination).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(Paths(destination).database()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_FALSE(FS::exists(paths.base()));
    EXPECT_FALSE(FS::exists(Paths(destination).moveJournal()));
    const std::string detail = paths.base().string() + " → " + destination.string();
    EXPECT_EQ(actionsOf(engine()).front(), "relocate_library " + detail);
    for (const auto* agent : {"cursor", "claude_code"}) {
      EXPECT_EQ(fs::read_symlink(placeOf(agent, "pdf")), destination / "skills/pdf");
      EXPECT_TRUE(agentHolds(agent, "csv"));
    }
    EXPECT_EQ(folderAsText(placeOf("cline", "pdf")), copy);
    // The engine goes on with the new place, and so does the next one.
    installed("after");
    SkillsEngine next(Paths(destination), user);
    EXPECT_EQ(next.skills().size(), 3U);
    for (const auto& skill : next.skills()) {
      EXPECT_EQ(fs::path(skill.centralPath).parent_path(), destination / "skills");
      EXPECT_TRUE(fs::exists(fs::path(skill.centralPath) / "SKILL.md"));
    }
    EXPECT_EQ(next.repairDeployments({}).deployed, 0);
  }

  // Whenever its process is killed, the next start finds the library whole at one place, and nothing at the other.
  void survivesBeingKilled(const Path& destination) {
    givenLibrary();
    const std::string content = contentOf(paths.base());
    int steps = 0;
    engine().relocateLibrary(destination, {{}, [&](const Progress&) { ++steps; }, {}});
    engine().relocateLibrary(paths.base(), {});
    reopen();
    int moved = 0;
    for (int last = 1; last <= steps; ++last) {
      OtherProcess mover([&](const auto& waitForTheEnd) {
        int step = 0;
        const auto count = [&](const Progress&) {
          if (++step == last) waitForTheEnd();
        };
        SkillsEngine(paths, user).relocateLibrary(destination, {{}, count, {}});
      });
      mover.kill();
      SkillsEngine next(paths, user);
      const bool hasMoved = next.paths() == Paths(destination);
      EXPECT_EQ(contentOf(next.paths().base()), content) << "killed at step " << last << " of " << steps;
      EXPECT_FALSE(FS::exists(hasMoved ? paths.base() : destination)) << last;
      EXPECT_EQ(FS::linkDestination(placeOf("cursor", "pdf")), next.paths().skills() / "pdf") << last;
      EXPECT_EQ(next.repairDeployments({}).deployed, 0) << last;
      if (hasMoved) next.relocateLibrary(paths.base(), {});
      moved += hasMoved ? 1 : 0;
    }
    EXPECT_GT(moved, 0);
    EXPECT_LT(moved, steps);
  }

  // Whoever looks at a deployed skill while the library moves there and back sees it.
  void staysInSight(const Path& destination) {
    givenLibrary();
    std::atomic<bool> done = false;
    std::atomic<int> looks = 0;
    std::atomic<int> missed = 0;
    const Path file = placeOf("cursor", "pdf") / "SKILL.md";
    std::thread reader([&] {
      const auto isSeen = [&] { return std::ifstream(file).good(); };
      // One look is many steps of the system, so that a second one at once decides.
      for (; !done; ++looks) {
        if (isSeen()) continue;
        missed += isSeen() ? 0 : 1;
      }
    });
    for (int i = 0; i < 5; ++i) {
      engine().relocateLibrary(destination, {});
      engine().relocateLibrary(paths.base(), {});
    }
    done = true;
    reader.join();
    EXPECT_EQ(missed, 0) << "of " << looks;
    EXPECT_GT(looks, 100);
  }
};

TEST_F(RelocationTest, OnOneFileSystemItArrivesWhole) { arrivesWhole(root / "new/place"); }
TEST_F(RelocationTest, KilledOnTheWayItIsWhole) { survivesBeingKilled(root / "new/place"); }
TEST_F(RelocationTest, ADeployedSkillIsAlwaysThere) { staysInSight(root / "place"); }

class RelocationToAnotherDiskTest : public RelocationTest {
 protected:
  void SetUp() override {
    if (!other) GTEST_SKIP() << "There is no second file system.";
  }

  static std::optional<TemporaryFolder> folderOnAnotherDiskThan(const Path& here) {
    const Path disk = "/dev/shm";
    const bool isUsable = FS::identity(disk).device != FS::identity(here).device && ::access(disk.c_str(), W_OK) == 0;
    return isUsable ? std::optional<TemporaryFolder>(std::in_place, disk, "orvanta-test-") : std::nullopt;
  }

  const std::optional<TemporaryFolder> other = folderOnAnotherDiskThan(root);
};

TEST_F(RelocationToAnotherDiskTest, ItArrivesWhole) { arrivesWhole(other->path() / "place"); }
TEST_F(RelocationToAnotherDiskTest, KilledOnTheWayItIsWhole) { survivesBeingKilled(other->path() / "place"); }
TEST_F(RelocationToAnotherDiskTest, ADeployedSkillIsAlwaysThere) { staysInSight(other->path() / "place"); }

TEST_F(RelocationTest, AnUnsuitableDestinationChangesNothing) {
  givenLibrary();
  const Path& base = paths.base();
  fs::create_directory_symlink(base, home / "door");
  fs::create_directory_symlink(home / "nothing", home / "dangling");
  folder(home / "full", {{"file", ""}});
  folder(home / "leftover", {{".moving.json", "{\"from\":\"" + base.string() + "\"}"}});
  agentInstalled("windsurf");
  engine().addProject(folder(home / "project", {{".claude/skills/own/SKILL.md", "---\nname: own\n---\n"}}), {});
  const std::string before = everythingAsText();
  const std::vector<std::pair<Path, std::string>> table{
      {home / "full" / "file", "is a file"},
      {home / "full" / "file" / "below", "is not a folder"},
      {home / "door", "is a link"},
      {home / "dangling", "is a link"},
      {home / "full", "is not empty"},
      {home / "leftover", "is not empty"},
      {base / "new", "is inside the current library"},
      {home / "door" / "new", "is inside the current library"},
      {root, "holds the current library"},
      {placeOf("cursor", "new"), "is inside Cursor's skills folder"},
      {home / ".codeium" / "windsurf" / "skills", "skills folder"},
      {home / ".codex", "holds Codex's skills folder"},
      {home / "project/.claude/skills/library", "is inside a folder of the project 'project'"},
      {home / "\xFF", "is not valid UTF-8"}};
  for (const auto& [each, message] : table) {
    const auto& destination = each;
    EXPECT_THAT(errorOf([&] { engine().relocateLibrary(destination, {}); }), IsError(Kind::invalidInput, message));
    const Plan plan = engine().planRelocation(destination);
    ASSERT_EQ(plan.size(), 1U) << destination;
    EXPECT_THAT(plan.front().reason.value_or(""), HasSubstr(message));
  }
  for (const auto& here : {base, base / "." / ".." / base.filename()}) {
    EXPECT_FALSE(engine().relocateLibrary(here, {}).moved);
    EXPECT_TRUE(engine().planRelocation(here).empty());
  }
  EXPECT_EQ(everythingAsText(), before);
  EXPECT_EQ(engine().planRelocation(home / "a/b").size(), 5U + 4U);
  EXPECT_EQ(everythingAsText(), before);
  write(home / "almost/.DS_Store", "");
  EXPECT_TRUE(engine().relocateLibrary(home / "almost", {}).moved);
}

TEST_F(RelocationTest, WhereItDoesNotFitOrCannotBeWrittenNothingIsLeft) {
  givenLibrary();
  write(paths.skills() / "pdf/data", std::string(3 << 20, 'x'));
  const Path small = folder(root / "small", {});
  inAnotherProcess([&] {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", small.c_str(), "tmpfs", 0, "size=3m") != 0) {
      std::puts("Left out: no small file system can be mounted here.");
      return;
    }
    const std::string before = everythingAsText();
    const auto isTooSmall = IsError(Kind::io, "not enough room");
    EXPECT_THAT(errorOf([&] { reopen().relocateLibrary(small / "a/b", {}); }), isTooSmall);
    EXPECT_TRUE(fs::is_empty(small));
    ASSERT_EQ(::mount("none", small.c_str(), "tmpfs", MS_REMOUNT, "size=8m"), 0);
    // Somebody else takes the room while the library is on its way.
    std::ofstream filler;
    const auto fill = [&](const Progress&) {
      if (filler.is_open()) return;
      filler.open(small / "filler");
      while (filler << std::string(4096, 'x') << std::flush) continue;
    };
    EXPECT_THAT(errorOf([&] { engine().relocateLibrary(small / "a/b", {.stop = {}, .progress = fill, .trace = {}}); }),
                IsError(Kind::io, "The library is still at " + paths.base().string()));
    EXPECT_THAT(FS::childNames(small), ElementsAre("filler"));
    filler.close();
    ASSERT_EQ(::mount("none", small.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=8m"), 0);
    EXPECT_THAT(errorOf([&] { engine().relocateLibrary(small / "a/b", {}); }), IsError(Kind::io, "Read-only"));
    EXPECT_EQ(everythingAsText(), before);
    EXPECT_FALSE(FS::exists(paths.moveJournal()));
  });
}

TEST_F(RelocationToAnotherDiskTest, WhatHappensOnTheWayTakesItBack) {
  givenLibrary();
  const Path file = paths.skills() / "csv/SKILL.md";
  const Path fresh = paths.skills() / "csv/new.txt";
  std::stop_source stop;
  const std::vector<std::pair<std::function<void()>, SkillsError>> table{
      {[&] { write(file, read(file) + "more"); }, SkillsError::conflict("was changed while it was copied")},
      {[&] { write(fresh, ""); }, SkillsError::conflict("was changed while it was copied")},
      {[&] { stop.request_stop(); }, SkillsError::refused("Stopped on request")}};
  for (const auto& [happens, expected] : table) {
    std::string before;
    const auto whenNearlyThere = [&, &happen = happens](const Progress& progress) {
      const bool isCompared = progress.what == "Copying the library" && progress.done + 1 == progress.total;
      if (!isCompared || !before.empty()) return;
      happen();
      before = folderAsText(home) + contentOf(paths.base());
    };
    EXPECT_THAT(errorOf([&] {
                  engine().relocateLibrary(other->path() / "place", {stop.get_token(), whenNearlyThere, {}});
                }),
                IsError(expected.kind(), expected.message()));
    EXPECT_EQ(folderAsText(home) + contentOf(paths.base()), before);
    EXPECT_TRUE(fs::is_empty(other->path()));
    EXPECT_FALSE(FS::exists(paths.moveJournal()));
  }
  EXPECT_TRUE(engine().relocateLibrary(other->path() / "place", {}).moved);
}

TEST_F(RelocationTest, ALinkThatCannotBeRepointedIsReportedAndLeftAlone) {
  givenLibrary();
  agentInstalled("codex");
  agentInstalled("windsurf");
  engine().setSyncMode(SyncMode::symlink);
  std::string pdf;
  for (const auto& skill : engine().skills()) pdf = skill.name == "pdf" ? skill.id : pdf;
  for (const auto* agent : {"codex", "windsurf"}) engine().deploy(pdf, agent, false);
  fs::remove(placeOf("cursor", "pdf"));
  const Path own = agentHas("cursor", "pdf", {{"mine", "mine"}});
  fs::remove(placeOf("claude_code", "pdf"));
  fs::create_directory_symlink(own, placeOf("claude_code", "pdf"));
  fs::remove(placeOf("claude_code", "csv"));
  const Path folderOfCodex = placeOf("codex", "x").parent_path();
  fs::remove_all(folderOfCodex);
  write(folderOfCodex, "a file");
  // As a link that was made by way of another spelling of the library's folder.
  fs::create_directory_symlink(root, home / "alias");
  fs::remove(placeOf("windsurf", "pdf"));
  fs::create_directory_symlink(home / "alias/library/skills/pdf", placeOf("windsurf", "pdf"));

  const Path place = root / "place";
  const auto report = engine().relocateLibrary(place, {});
  EXPECT_EQ(report.relinked, 2U);
  EXPECT_THAT(report.errors, testing::UnorderedElementsAre(StartsWith("pdf → cursor: Refusing"),
                                                           StartsWith("pdf → claude_code: Refusing"),
                                                           StartsWith("pdf → codex: Refusing")));
  EXPECT_EQ(read(own / "mine"), "mine");
  EXPECT_EQ(fs::read_symlink(placeOf("claude_code", "pdf")), own);
  EXPECT_EQ(fs::read_symlink(placeOf("windsurf", "pdf")), place / "skills/pdf");
  EXPECT_FALSE(FS::exists(placeOf("claude_code", "csv")));
  EXPECT_FALSE(FS::exists(paths.base()));
  for (const auto& target : engine().summary(pdf).targets) {
    const bool isBroken = target.tool == "cursor" || target.tool == "claude_code" || target.tool == "codex";
    EXPECT_EQ(target.status == kTargetError && target.lastError.has_value(), isBroken) << target.tool;
  }
  fs::remove(folderOfCodex);
  EXPECT_EQ(engine().repairDeployments({}).deployed, 3);
  EXPECT_TRUE(agentHolds("codex", "pdf") && agentHolds("claude_code", "csv"));
}

TEST_F(RelocationTest, LinksInProjectsFollow) {
  const auto id = installed("pdf");
  agentInstalled("cursor");
  const Path project = root / "project";
  fs::create_directories(project / ".cursor" / "skills");
  const auto added = engine().addProject(project, std::nullopt);
  engine().exportToProject(added.id, {.skillIds = {id}, .agents = {"cursor"}, .mode = SyncMode::symlink}, {});
  fs::create_directory_symlink(home, project / ".cursor" / "skills" / "other");

  const auto report = engine().relocateLibrary(root / "place", {});
  EXPECT_TRUE(report.errors.empty());
  EXPECT_EQ(FS::linkDestination(project / ".cursor/skills/pdf"), root / "place/skills/pdf");
  EXPECT_EQ(FS::linkDestination(project / ".cursor/skills/other"), home);
}

TEST_F(RelocationTest, WhatIsNotTheLibrarysStays) {
  givenLibrary();
  write(paths.base() / "notes.txt", "mine");
  fs::create_directory_symlink(home, paths.base() / "home");
  const auto report = engine().relocateLibrary(root / "place", {});
  EXPECT_THAT(report.leftBehind, ElementsAre("home", "notes.txt"));
  EXPECT_THAT(FS::childNames(paths.base()), testing::UnorderedElementsAre("home", "notes.txt"));
  EXPECT_EQ(read(paths.base() / "notes.txt"), "mine");
}

TEST_F(RelocationTest, TheChoiceIsSavedForTheLibraryThatIsTheUsersOnly) {
  const Path file = Paths::configFile(user);
  write(file, "{\"theme\":\"dark\"}");
  const Paths standard(Paths::defaultBase(user));
  const auto saved = [&] { return Paths::resolveDefault(user, {}).base(); };
  SkillsEngine own(standard, user);
  EXPECT_FALSE(engine().relocateLibrary(root / "elsewhere", {}).isChosen);
  EXPECT_EQ(saved(), standard.base());
  EXPECT_TRUE(own.relocateLibrary(root / "chosen", {}).isChosen);
  EXPECT_EQ(saved(), root / "chosen");
  EXPECT_TRUE(own.isRelocated());
  EXPECT_TRUE(own.relocateLibrary(standard.base(), {}).isChosen);
  EXPECT_FALSE(own.isRelocated());
  EXPECT_EQ(Json::parse(read(file)), Json({{"theme", "dark"}}));
}

TEST_F(RelocationTest, AChoiceThatCannotBeSavedLeavesAWayToTheLibrary) {
  const Paths standard(Paths::defaultBase(user));
  SkillsEngine own(standard, user);
  write(user.config / "orvanta", "a file in the way");
  const auto report = own.relocateLibrary(root / "chosen", {});
  EXPECT_TRUE(report.moved && !report.isChosen);
  EXPECT_EQ(report.errors.size(), 1U);
  EXPECT_EQ(SkillsEngine(standard, user).paths().base(), root / "chosen");
  fs::remove(user.config / "orvanta");
  EXPECT_EQ(SkillsEngine(standard, user).paths().base(), root / "chosen");
  EXPECT_FALSE(FS::exists(standard.base()));
  EXPECT_EQ(Paths::resolveDefault(user, {}).base(), root / "chosen");
}

TEST_F(RelocationTest, AStrangersJournalRemovesNothing) {
  givenLibrary();
  const Path victim = folder(home / "victim", {{"skills/a", "a"}, {"logs/b", "b"}, {"orvanta.db", "c"}});
  const auto departing = [&](const Path& to, bool moved) {
    return jsonText({{"to", to.string()}, {"createdFolders", 3}, {"moved", moved}});
  };
  const auto arriving = [&](const Path& from, bool moved) {
    return jsonText({{"from", from.string()}, {"renames", false}, {"moved", moved}});
  };
  struct Case {
    std::string here;
    std::string there;
    bool opens;
  };
  const auto deep = R"({"to":"/x","y":)" + std::string(30'000, '[') + std::string(30'000, ']') + "}";
  const std::vector<Case> cases{{departing(victim, false), "", true},
                                {departing(victim, true), "", false},
                                {departing(victim, false), arriving(home, false), true},
                                {departing(victim, true), arriving(home, true), false},
                                {departing(home / "absent", true), "", false},
                                {departing("victim", false), "", false},
                                {departing(home / ".." / "victim", false), "", false},
                                {departing(paths.base(), false), "", false},
                                {arriving(victim, false), "", false},
                                {arriving(victim, true), "", true},
                                {"", "", false},
                                {"[]", "", false},
                                {"{\"to\":7}", "", false},
                                {R"({"to":"/x","moved":false,"createdFolders":4294967296})", "", false},
                                {R"({"to":"/x\u0000y","moved":false,"createdFolders":0})", "", false},
                                {deep, "", false},
                                {"{\"to\":\"/x\",\"moved\":\"yes\",\"createdFolders\":-1}", "", false}};
  reopen();
  const std::string before = everythingAsText();
  for (const auto& [here, there, opens] : cases) {
    write(paths.moveJournal(), here);
    if (!there.empty()) write(Paths(victim).moveJournal(), there);
    if (opens) {
      EXPECT_EQ(reopen().paths(), paths) << here;
    } else {
      EXPECT_THAT(errorOf([&] { SkillsEngine(paths, user); }), IsError(Kind::conflict, "remove ")) << here;
    }
    fs::remove(paths.moveJournal());
    fs::remove(Paths(victim).moveJournal());
    EXPECT_EQ(everythingAsText(), before) << here;
  }
}

TEST_F(RelocationTest, WhileAProcessMovesTheLibraryOthersWaitAndSayWhy) {
  givenLibrary();
  const Path place = root / "place";
  const std::string before = contentOf(paths.base());
  OtherProcess mover([&](const auto& waitForTheEnd) {
    SkillsEngine(paths, user).relocateLibrary(place, {{}, [&](const Progress&) { waitForTheEnd(); }, {}});
  });
  for (const auto& at : {paths.base(), place}) {
    EXPECT_THAT(errorOf([&] { settledLibrary(Paths(at), user, 20ms); }),
                IsError(Kind::conflict, "being moved to " + place.string()));
  }
  // One that had opened it before still reads it.
  EXPECT_EQ(engine().skills().size(), 2U);
  EXPECT_TRUE(agentHolds("cursor", "pdf"));
  EXPECT_THAT(errorOf([&] { engine().setSyncMode(SyncMode::copy); }), IsError(Kind::conflict, "being moved to"));
  const std::jthread killer([&] {
    std::this_thread::sleep_for(100ms);
    mover.kill();
  });
  EXPECT_EQ(reopen().paths(), paths);
  EXPECT_EQ(contentOf(paths.base()), before);
  EXPECT_FALSE(FS::exists(place));
}

}  // namespace
}  // namespace orvanta
