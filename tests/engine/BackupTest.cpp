// Libraries that share their skills through a remote: what travels, what must not come in, and that no accident leaves
// half of anything.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include <fmt/format.h>

#include "files/FS.h"
#include "foundations/Text.h"
#include "platform/ProcessRunner.h"
#include "tests/support/GitServer.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Kind = SkillsError::Kind;
using Path = fs::path;
using Texts = std::vector<std::string>;

// One of several computers with a library of its own.
class Machine {
 public:
  explicit Machine(const Path& folder)
      : user{folder / "home", folder / "home" / ".config", folder / "temp"}, paths(folder / "library") {
    fs::create_directories(user.home);
    fs::create_directories(user.temp);
  }
  SkillsEngine& engine() {
    if (!engine_) engine_ = std::make_unique<SkillsEngine>(paths, user);
    return *engine_;
  }
  void close() { engine_.reset(); }
  SkillRecord skill(const std::string& name) {
    for (const auto& record : engine().skills()) {
      if (record.name == name) return record;
    }
    ADD_FAILURE() << "no skill " << name;
    return {};
  }
  // What is known of the skills whose folders are there, one a line.
  std::string facts() {
    const auto tags = engine().tagsBySkill();
    Texts lines;
    for (const auto& record : engine().skills()) {
      if (record.status != "ok") continue;
      const auto own = tags.find(record.id);
      lines.push_back(fmt::format(
          "{} {} {} {} {} {} {} {} [{}]", record.id, record.name, Path(record.centralPath).filename().string(),
          rawValue(record.sourceType), record.sourceRef.value_or("-"), record.sourceSubpath.value_or("-"),
          record.sourceRevision.value_or("-"), record.enabled, own == tags.end() ? "" : Text::join(own->second, ",")));
    }
    std::sort(lines.begin(), lines.end());
    return Text::join(lines, "\n");
  }
  [[nodiscard]] std::string conflicts() { return Text::join(engine().backupStatus().pendingConflicts, ","); }

  const UserFolders user;
  const Paths paths;

 private:
  std::unique_ptr<SkillsEngine> engine_;
};

class BackupTest : public Sandbox {
 protected:
  BackupTest() { server.openForPushing("mine"); }

  std::string add(Machine& machine, const std::string& name, const Files& files = {}) {
    return machine.engine().installLocal(skillFolder(machine.user.home / "new" / name, files), std::nullopt).record.id;
  }
  void share(Machine& machine) {
    machine.engine().initBackup({});
    machine.engine().setBackupRemote(url, {});
    machine.engine().pushBackup({});
  }
  // The skills' files, without what git and the manifest keep beside them.
  static std::string files(const Machine& machine) {
    std::string text;
    auto names = FS::childNames(machine.paths.skills());
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
      if (name != ".git" && name != ".orvanta") text += folderAsText(machine.paths.skills() / name);
    }
    const auto place = machine.paths.skills().string();
    for (auto at = text.find(place); at != std::string::npos; at = text.find(place, at)) text.erase(at, place.size());
    return text;
  }
  static std::string git(const Path& folder, const Texts& words, bool mayFail = false) {
    const auto result = ProcessRunner::run("/usr/bin/git", words, {.cwd = folder});
    EXPECT_TRUE(mayFail || result.succeeded()) << Text::join(words, " ") << ": " << result.failureText();
    return std::string(Text::trim(result.standardOutput));
  }
  // Somebody who may push changes the remote past Orvanta.
  void tamper(const std::function<void(const Path&)>& change, const std::string& repository = "mine") {
    const Path folder = root / "tampered";
    fs::remove_all(folder);
    git(root, {"clone", "--quiet", server.folder(repository).string(), folder.string()});
    change(folder);
    git(folder, {"add", "--all", "--force"});
    git(folder, {"commit", "--quiet", "--allow-empty", "-m", "x"});
    git(folder, {"push", "--quiet", "--force", "origin", "HEAD:main"});
  }
  static std::string lastAudit(Machine& machine) {
    const auto entry = machine.engine().auditEntries(1, 0).front();
    return entry.action + (entry.success ? " ok " : " failed ") + entry.detail.value_or("");
  }

  GitServer server{root / "server"};
  const std::string url = server.url("mine");
  Machine desk{root / "desk"};
  Machine lap{root / "lap"};
};

TEST_F(BackupTest, TwoLibrariesShareTheirSkillsWithAllThatIsKnownOfThem) {
  server.commit("o/r", {{"skills/git/SKILL.md", "---\nname: git\n---\n"}});
  SkillsEngine& engine = desk.engine();
  engine.installGit("o/r", {}, {});
  const auto pdf = add(desk, "pdf", {{"tool.sh", "1"}});
  const auto docx = add(desk, "docx");
  add(desk, "old-name");
  engine.setTags(pdf, {"office", "a b"});
  engine.setSkillEnabled(docx, false);
  share(desk);
  EXPECT_EQ(lastAudit(desk), "backup_push ok ");
  EXPECT_EQ(lap.engine().restoreLibraryFromRemote(url, {}).added.size(), 4U);
  EXPECT_EQ(lap.facts(), desk.facts());
  EXPECT_EQ(files(lap), files(desk));
  EXPECT_EQ(lap.engine().setting("backup_remote"), url);
  EXPECT_FALSE(lap.engine().backupNow(std::nullopt, {})) << "the manifest says the same on both sides";

  // Both sides go on, each with other skills; the files of one of them are a copy in an agent's folder.
  fs::create_directories(desk.user.home / ".cursor");
  engine.setSyncMode(SyncMode::copy);
  engine.deploy(pdf, "cursor", false);
  engine.updateSkillInfo(pdf, "mine", std::nullopt);
  engine.setTags(docx, {"word"});
  add(desk, "from desk");
  lap.engine().removeSkill(docx, true);
  add(lap, "from lap");
  write(lap.paths.skills() / "pdf" / "tool.sh", "2");
  fs::rename(lap.paths.skills() / "old-name", lap.paths.skills() / "new-name");
  lap.engine().reconcileLibraryWithDisk({});
  lap.engine().pushBackup({});
  EXPECT_THAT(errorOf([&] { engine.pushBackup({}); }), IsError(Kind::git, "orvanta backup pull"));
  const Plan plan = engine.planPullBackup({});
  EXPECT_EQ(plan.size(), 5U);
  const auto report = engine.pullBackup({});
  EXPECT_THAT(report.added, UnorderedElementsAre("from lap", "old-name")) << "one folder alone was renamed";
  EXPECT_THAT(report.renewed, UnorderedElementsAre("mine"));
  EXPECT_THAT(report.missing, UnorderedElementsAre("docx", "old-name"));
  EXPECT_THAT(report.errors, IsEmpty());
  EXPECT_EQ(lastAudit(desk), "backup_pull ok +2 skills, 2 missing");
  EXPECT_EQ(desk.skill("from lap").id, lap.skill("from lap").id);
  EXPECT_EQ(read(desk.user.home / ".cursor" / "skills" / "pdf" / "tool.sh"), "2") << "the copy follows";
  EXPECT_EQ(engine.summary(pdf).record.name, "mine") << "the user's own name stays";
  engine.pushBackup({});
  lap.engine().pullBackup({});
  EXPECT_EQ(files(lap), files(desk));
  EXPECT_EQ(lap.engine().backupStatus().ahead + lap.engine().backupStatus().behind, 0);

  // What was deleted on one side returns there from the history, and so on the other.
  const auto first = lap.engine().backupHistory(100).back().sha;
  lap.engine().restoreBackup(first, {});
  lap.engine().pushBackup({});
  engine.pullBackup({});
  EXPECT_EQ(desk.skill("docx").status, "ok");
  EXPECT_EQ(desk.skill("docx").id, docx);
  EXPECT_EQ(lap.skill("docx").id, docx);
  EXPECT_FALSE(lap.skill("docx").enabled);
  EXPECT_EQ(files(lap), files(desk));
}

TEST_F(BackupTest, AConflictIsNamedAndChangesNothingUntilItIsSettled) {
  for (const auto* name : {"pdf", "docx", "kept"}) add(desk, name, {{"file", "1"}});
  share(desk);
  lap.engine().restoreLibraryFromRemote(url, {});
  write(lap.paths.skills() / "pdf" / "file", "lap");
  write(lap.paths.skills() / "kept" / "file", "lap");
  write(lap.paths.skills() / "docx" / "file", "lap");
  add(lap, "new");
  lap.engine().pushBackup({});
  write(desk.paths.skills() / "pdf" / "file", "desk");
  desk.engine().removeSkill(desk.skill("docx").id, true);
  for (int round = 0; round < 2; ++round) {
    const auto before = files(desk) + desk.facts();
    const auto error = errorOf([&] { desk.engine().pullBackup({}); });
    EXPECT_THAT(error, IsError(Kind::conflict, "Merge conflict while pulling the backup. Resolve it in " +
                                                   desk.paths.skills().string() + " with git, then retry. Details: "));
    EXPECT_THAT(error.message(), HasSubstr("Both sides changed: docx, pdf"));
    EXPECT_EQ(files(desk) + desk.facts(), before);
    EXPECT_EQ(desk.conflicts(), "docx,pdf");
    EXPECT_THAT(lastAudit(desk), HasSubstr("backup_pull failed"));
    EXPECT_FALSE(FS::exists(desk.paths.skills() / ".git" / "MERGE_HEAD"));
    desk.engine().backupNow(std::nullopt, {});
    EXPECT_EQ(desk.conflicts(), "docx,pdf") << "a snapshot alone settles nothing";
    desk.close();
  }
  git(desk.paths.skills(), {"merge", "FETCH_HEAD"}, true);
  EXPECT_THAT(errorOf([&] { desk.engine().backupNow(std::nullopt, {}); }), IsError(Kind::conflict, "not settled"));
  EXPECT_EQ(errorOf([&] { desk.engine().pullBackup({}); }).kind(), Kind::conflict);
  write(desk.paths.skills() / "pdf" / "file", "both");
  git(desk.paths.skills(), {"checkout", "FETCH_HEAD", "--", "docx"});
  git(desk.paths.skills(), {"add", "--all"});
  desk.engine().pushBackup({});
  EXPECT_EQ(desk.conflicts(), "");
  desk.engine().pullBackup({});
  lap.engine().pullBackup({});
  EXPECT_EQ(files(lap), files(desk));
  EXPECT_EQ(desk.facts(), lap.facts());
  EXPECT_EQ(read(lap.paths.skills() / "pdf" / "file"), "both");
}

TEST_F(BackupTest, LibrariesThatBeganApartComeTogether) {
  for (auto* machine : {&desk, &lap}) {
    add(*machine, "common");
    add(*machine, machine == &desk ? "pdf" : "docx");
    machine->engine().setTags(machine->skill("common").id, {"t"});
  }
  const auto ours = lap.skill("common").id;
  share(desk);
  lap.engine().initBackup({});
  EXPECT_THAT(
      errorOf([&] { lap.engine().restoreLibraryFromRemote(url, {}); }),
      IsError(Kind::conflict, "The library is not empty. Initialize backup and set the remote instead, then pull."));
  lap.engine().setBackupRemote(url, {});
  EXPECT_THAT(lap.engine().pullBackup({}).added, ElementsAre("pdf"));
  EXPECT_EQ(lap.skill("common").id, ours);
  EXPECT_EQ(lap.skill("pdf").id, desk.skill("pdf").id);
  lap.engine().pushBackup({});
  EXPECT_THAT(desk.engine().pullBackup({}).added, ElementsAre("docx"));
  EXPECT_EQ(files(lap), files(desk));
}

TEST_F(BackupTest, RemotesOfEveryKindAreAnsweredClearlyAndCostNothing) {
  add(desk, "pdf");
  EXPECT_THAT(errorOf([&] { desk.engine().pullBackup({}); }), IsError(Kind::invalidInput, "Backup is not initialized"));
  desk.engine().initBackup({});
  EXPECT_THAT(errorOf([&] { desk.engine().pushBackup({}); }),
              IsError(Kind::invalidInput, "No backup remote configured"));
  server.openForPushing("private/mine");
  server.openForPushing("closed");
  server.git("closed", {"config", "http.receivepack", "false"});
  server.openForPushing("notes");
  git(root, {"clone", "--quiet", server.folder("notes").string(), (root / "notes").string()});
  write(root / "notes" / "README.md", "x");
  for (const Texts& words : {Texts{"add", "."}, {"commit", "-qm", "x"}, {"push", "-q", "origin", "HEAD:main"}}) {
    git(root / "notes", words);
  }
  const auto before = files(desk) + desk.facts();
  const auto failure = [&](const std::string& remote, bool isPush) {
    desk.engine().setBackupRemote(remote, {});
    return errorOf([&] { isPush ? desk.engine().pushBackup({}) : (void)desk.engine().pullBackup({}); });
  };
  EXPECT_THAT(failure(url, false), IsError(Kind::git, "there is nothing to pull yet"));
  EXPECT_EQ(failure(server.url("closed"), true).kind(), Kind::git);
  EXPECT_EQ(failure(server.url("nowhere"), true).kind(), Kind::git);
  EXPECT_EQ(failure(server.url("private/mine"), true).kind(), Kind::git);
  EXPECT_THAT(failure(server.url("notes"), false), IsError(Kind::refused, "no backup of a library"));
  EXPECT_EQ(files(desk) + desk.facts(), before);
  for (const auto& [remote, kind] : std::map<std::string, Kind>{{url, Kind::git},
                                                                {server.url("notes"), Kind::refused},
                                                                {server.url("private/mine"), Kind::git},
                                                                {"file:///etc", Kind::invalidInput},
                                                                {"ext::sh -c x", Kind::invalidInput}}) {
    EXPECT_EQ(errorOf([&, &from = remote] { lap.engine().restoreLibraryFromRemote(from, {}); }).kind(), kind) << remote;
    EXPECT_TRUE(fs::is_empty(lap.paths.skills())) << remote;
    EXPECT_EQ(lap.engine().setting("backup_remote"), std::nullopt);
  }
  std::string secret = server.url("private/mine");
  secret.insert(secret.find("://") + 3, "reader:p%40ss%2Fword@");
  desk.engine().setBackupRemote(secret, {});
  desk.engine().pushBackup({});
  lap.engine().restoreLibraryFromRemote(secret, {});
  EXPECT_EQ(lap.facts(), desk.facts());
  for (auto* machine : {&desk, &lap}) {
    for (const auto& entry : machine->engine().auditEntries(100, 0)) {
      EXPECT_THAT(entry.detail.value_or(""), Not(HasSubstr("ss%2Fword")));
    }
    EXPECT_THAT(machine->engine().backupStatus().remoteURL.value_or(""), HasSubstr("://***@"));
  }

  // Forced over: both histories come together, and what was only here stays.
  share(desk);
  tamper([&](const Path& folder) {
    git(folder, {"checkout", "--quiet", "--orphan", "fresh"});
    skillFolder(folder / "forced");
  });
  EXPECT_THAT(desk.engine().pullBackup({}).added, ElementsAre("forced"));
  EXPECT_EQ(desk.skill("pdf").status, "ok");
  server.stop();
  EXPECT_EQ(errorOf([&] { desk.engine().pullBackup({}); }).kind(), Kind::git);
}

TEST_F(BackupTest, WhatAStrangerPushedNeitherLeavesTheLibraryNorReplacesItsOwn) {
  skillFolder(root / "private", {{"key", "secret"}});
  add(desk, "pdf", {{"file", "1"}});
  const auto taken = add(desk, "taken");
  share(desk);
  const auto before = files(desk) + desk.facts();
  const std::map<std::string, std::function<void(const Path&)>> ours{
      {".orvanta", [&](const Path& f) { fs::remove_all(f), fs::create_directory_symlink(root / "private", f); }},
      {".gitignore", [&](const Path& f) { fs::remove(f), fs::create_symlink(root / "private" / "key", f); }},
      {".replacing-x-1", [&](const Path& f) { skillFolder(f); }},
      {".removing-pdf-1", [&](const Path& f) { skillFolder(f); }},
      {".installing-x", [&](const Path& f) { skillFolder(f); }},
      {".orvanta.lock", [&](const Path& f) { write(f, ""); }},
  };
  const auto clean = server.git("mine", {"rev-parse", "main"});
  for (const auto& [name, change] : ours) {
    tamper([&, &at = name, &how = change](const Path& folder) { how(folder / at); });
    EXPECT_THAT(errorOf([&] { desk.engine().pullBackup({}); }), IsError(Kind::refused, name));
    EXPECT_THAT(errorOf([&] { lap.engine().restoreLibraryFromRemote(url, {}); }), IsError(Kind::refused, name));
    server.git("mine", {"update-ref", "refs/heads/main", clean});
  }
  tamper([&](const Path& f) { write(f / ".orvanta" / "manifest.json", R"({"version":2})"); });
  EXPECT_THAT(errorOf([&] { desk.engine().pullBackup({}); }), IsError(Kind::refused, "later version"));
  server.git("mine", {"update-ref", "refs/heads/main", clean});
  EXPECT_EQ(files(desk) + desk.facts(), before);
  EXPECT_TRUE(fs::is_empty(lap.paths.skills()));

  tamper([&](const Path& folder) {
    fs::create_symlink(root / "private" / "key", skillFolder(folder / "spy") / "key");
    fs::create_symlink("../../../../private", folder / "pdf" / "up");
    write(folder / "pdf" / "file", "2");
    fs::create_directory_symlink(root / "private", folder / "linked");
    fs::create_directory(folder / "half");
    fs::create_symlink(root / "private" / "SKILL.md", folder / "half" / "SKILL.md");
    skillFolder(folder / ".hidden");
    skillFolder(folder / "n\xff");
    for (const auto* name : {"good", "twin"}) skillFolder(folder / name);
    const auto entry = [](const std::string& place, const std::string& id, const std::string& reference) {
      return fmt::format(R"({{"id":"{}","name":"n","dirName":"{}","sourceType":"git","sourceRef":"{}","enabled":true,)"
                         R"("tags":["x\u0007y","  ","../t"]}})",
                         id, place, reference);
    };
    const std::string other = "11111111-1111-4111-8111-111111111111";
    write(folder / ".orvanta" / "manifest.json",
          R"({"version":1,"exportedAt":1,"device":"\u001b[2J","skills":[)" +
              Text::join(Texts{entry("good", taken, "a\\u001b[2Jb"), entry("twin", other, "o/r"),
                               entry("twin", "../../x", ""), entry("../../private", other, ""), entry("", other, "")},
                         ",") +
              "]}");
  });
  const auto hash = desk.skill("pdf").contentHash;
  const auto report = desk.engine().pullBackup({});
  EXPECT_THAT(report.added, UnorderedElementsAre("good", "twin", "n\xff"));
  EXPECT_EQ(report.errors.size(), 2U) << Text::join(report.errors, "\n");
  EXPECT_THAT(Text::join(report.errors, "\n"), HasSubstr("spy: its link 'key' leads out of the skill"));
  EXPECT_THAT(Text::join(report.errors, "\n"), HasSubstr("pdf: its link 'up' leads out of the skill"));
  EXPECT_EQ(desk.skill("pdf").contentHash, hash) << "not read anew";
  EXPECT_EQ(desk.skill("taken").id, taken);
  EXPECT_NE(desk.skill("good").id, taken);
  EXPECT_EQ(desk.skill("good").sourceRef, std::nullopt);
  EXPECT_EQ(desk.skill("twin").sourceRef, "o/r");
  EXPECT_THAT(desk.facts(), Not(HasSubstr("\a")));
  EXPECT_THAT(desk.engine().pullBackup({}).errors, testing::SizeIs(2)) << "said again while it is so";
  desk.engine().pushBackup({});
}

TEST_F(BackupTest, ARestoreIsANewSnapshotAndLosesNothing) {
  const auto pdf = add(desk, "pdf", {{"file", "1"}});
  const auto docx = add(desk, "docx");
  desk.engine().initBackup({});
  const auto first = desk.engine().backupHistory(1).front().sha;
  desk.engine().removeSkill(docx, true);
  add(desk, "new");
  desk.engine().backupNow("second\nline", {});
  EXPECT_EQ(lastAudit(desk), "backup_commit ok second\nline");
  write(desk.paths.skills() / "pdf" / "file", "unsaved");
  EXPECT_THAT(errorOf([&] { desk.engine().restoreBackup("HEAD~1", {}); }),
              IsError(Kind::invalidInput, "Invalid commit id"));
  EXPECT_GE(desk.engine().planRestoreBackup(first, {}).size(), 2U) << "docx returns, new goes";
  const auto report = desk.engine().restoreBackup(first.substr(0, 8) + " ", {});
  EXPECT_THAT(report.added, ElementsAre("docx"));
  EXPECT_THAT(report.missing, ElementsAre("new"));
  EXPECT_EQ(desk.skill("docx").id, docx);
  EXPECT_EQ(read(desk.paths.skills() / "pdf" / "file"), "1");
  EXPECT_EQ(desk.skill("pdf").id, pdf);
  const auto history = desk.engine().backupHistory(10);
  ASSERT_EQ(history.size(), 4U);
  EXPECT_EQ(history[0].message, "Restore library to " + first.substr(0, 8));
  EXPECT_EQ(git(desk.paths.skills(), {"show", history[1].sha + ":pdf/file"}), "unsaved");
  EXPECT_TRUE(desk.engine().reconcileLibraryWithDisk({}).renewed.empty());
  desk.engine().backupNow(std::nullopt, {});
  EXPECT_FALSE(desk.engine().backupNow(std::nullopt, {}));
  EXPECT_EQ(lastAudit(desk), "backup_commit ok nothing to commit");
}

TEST_F(BackupTest, ProcessesTakeTheirSnapshotsOneAfterTheOther) {
  add(desk, "pdf");
  desk.engine().initBackup({});
  desk.close();
  inProcesses(3, [&](int number) {
    Machine same(root / "desk");
    for (int i = 0; i < 3; ++i) {
      write(same.paths.skills() / "pdf" / std::to_string(number), std::to_string(i));
      same.engine().backupNow(fmt::format("{} {}", number, i), {});
    }
  });
  EXPECT_EQ(desk.engine().backupStatus().dirtyFiles, 0);
  EXPECT_EQ(git(desk.paths.skills(), {"fsck", "--strict"}), "");
}

// Operations that end by force once a certain command of git has ended.
class KilledBackups : public BackupTest {
 protected:
  using Operation = std::function<void(SkillsEngine&, const OperationContext&)>;

  // How a run of its own process ended: the number of commands it ran, and whether it was killed.
  struct Run {
    int commands = 0;
    bool isKilled = false;
  };
  Run run(Machine& machine, const Operation& operation, int killAt, bool halfWay) {
    machine.close();
    write(root / "count", "0");
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      int status = 0;
      std::thread([&] { status = perform(machine, operation, killAt, halfWay); }).join();
      ::_exit(status);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << "it failed";
    return {std::stoi(read(root / "count")), WIFSIGNALED(status) != 0};
  }
  // Kills the operation after each of its commands, always in the same library, and where git was changing the files
  // also half-way: what the next start finds is the old or the new, and trying again leads to the new.
  void tryAll(Machine& machine, const Operation& operation) {
    machine.close();
    copy(machine.paths.base(), root / "saved");
    const auto begin = files(machine);
    const int commands = run(machine, operation, 0, false).commands;
    const auto end = files(machine);
    ASSERT_NE(begin, end);
    int halves = 0;
    for (int at = 1; at <= commands; ++at) {
      for (const bool halfWay : {false, true}) {
        SCOPED_TRACE(fmt::format("command {} of {}{}", at, commands, halfWay ? ", half-way" : ""));
        copy(root / "saved", machine.paths.base());
        const bool isKilled = run(machine, operation, at, halfWay).isKilled;
        EXPECT_TRUE(halfWay || isKilled);
        if (!isKilled) continue;
        halves += halfWay ? 1 : 0;
        machine.engine();
        const auto found = files(machine);
        EXPECT_TRUE(found == begin || found == end) << found;
        EXPECT_EQ(machine.engine().setting("backup_unsettled"), std::nullopt);
        const auto report = machine.engine().reconcileLibraryWithDisk({});
        EXPECT_EQ(report.added.size() + report.renewed.size() + report.missing.size() + report.errors.size(), 0U)
            << "the records were in line";
        if (found == end || (at % 3 != 0 && !halfWay)) continue;
        run(machine, operation, 0, false);
        EXPECT_EQ(files(machine), end);
      }
    }
    RecordProperty("halves", halves);
  }
  static void copy(const Path& from, const Path& to) {
    fs::remove_all(to);
    const auto copied = ProcessRunner::run("/bin/cp", {"-a", from.string(), to.string()});
    EXPECT_TRUE(copied.succeeded()) << copied.failureText();
  }

  std::string target;  // the snapshot that comes into the files

 private:
  int perform(Machine& machine, const Operation& operation, int killAt, bool halfWay) {
    int count = 0;
    const OperationContext context{.trace = [&](std::string_view) {
      write(root / "count", std::to_string(++count));
      if (count != killAt) return;
      if (!halfWay || isHalfDone(machine)) ::kill(::getpid(), SIGKILL);
    }};
    try {
      operation(machine.engine(), context);
      return 0;
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      return 1;
    }
  }
  // Leaves the files as git does that is killed among them; false when it is not changing them.
  bool isHalfDone(Machine& machine) {
    const Path skills = machine.paths.skills();
    const auto begun = machine.engine().setting("backup_unsettled").value_or("");
    if (begun.empty() || !FS::exists(skills / ".git")) return false;
    if (begun.find("\"from\":\"" + git(skills, {"rev-parse", "HEAD"})) == std::string::npos) return false;
    git(skills, {"read-tree", "HEAD"});
    git(skills, {"restore", "--source=" + target, "--worktree", "--", "pdf"});
    for (const auto* gone : {"docx", "new"}) fs::remove_all(skills / gone);
    write(skills / ".git" / "index.lock", "half");
    return true;
  }
};

TEST_F(KilledBackups, LeaveEverythingWholeAndInLine) {
  for (const auto* name : {"pdf", "docx", "other"}) add(desk, name, {{"file", "1"}});
  share(desk);
  const auto first = desk.engine().backupHistory(1).front().sha;
  lap.engine().restoreLibraryFromRemote(url, {});
  write(lap.paths.skills() / "pdf" / "file", "2");
  lap.engine().removeSkill(lap.skill("docx").id, true);
  add(lap, "new", {{"file", "2"}});
  add(desk, "own");
  lap.engine().reconcileLibraryWithDisk({});
  lap.engine().pushBackup({});
  target = lap.engine().backupHistory(1).front().sha;
  {
    SCOPED_TRACE("pull");
    tryAll(desk, [](SkillsEngine& engine, const auto& context) { engine.pullBackup(context); });
  }
  {
    SCOPED_TRACE("restore");
    target = first;
    tryAll(lap, [&](SkillsEngine& engine, const auto& context) { engine.restoreBackup(first, context); });
  }
  SCOPED_TRACE("clone");
  Machine fresh(root / "fresh");
  fresh.engine();
  tryAll(fresh, [this](SkillsEngine& engine, const auto& context) { engine.restoreLibraryFromRemote(url, context); });
}

}  // namespace
}  // namespace orvanta
