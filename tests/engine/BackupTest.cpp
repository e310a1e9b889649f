// Libraries that share their skills through a remote: what travels, and what must not come in.

#include "agents/ChangeJournal.h"
#include "tests/support/SharedLibraries.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using Kind = SkillsError::Kind;

class BackupTest : public SharedLibraries {};

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

TEST_F(BackupTest, WhatARemoteCallsItsBranchesIsNoOptionAndNoObstacle) {
  add(desk, "pdf");
  share(desk);
  const Path remote = server.folder("mine");
  git(remote, {"symbolic-ref", "HEAD", "refs/heads/nobody-pushed-it"});
  EXPECT_THAT(lap.engine().restoreLibraryFromRemote(url, {}).added, ElementsAre("pdf"));

  git(remote, {"branch", "keep", "main"});
  git(remote, {"update-ref", "refs/heads/--mirror", "main"});
  git(remote, {"symbolic-ref", "HEAD", "refs/heads/--mirror"});
  Machine third(root / "third");
  third.engine().restoreLibraryFromRemote(url, {});
  EXPECT_THAT(errorOf([&] { third.engine().pushBackup({}); }), IsError(Kind::refused, "begins with '-'"));
  EXPECT_THAT(errorOf([&] { third.engine().pullBackup({}); }), IsError(Kind::refused, "begins with '-'"));
  EXPECT_EQ(git(remote, {"rev-parse", "keep"}), git(remote, {"rev-parse", "main"}));
}

TEST_F(BackupTest, ASkillChangesAsAWholeAndKeepsWhatIsBesideItsSnapshot) {
  add(desk, "pdf", {{"file", "1"}, {"same", "1"}, {"gone/file", "1"}});
  add(desk, "docx");
  share(desk);
  lap.engine().restoreLibraryFromRemote(url, {});
  const Path pdf = lap.paths.skills() / "pdf";
  const auto other = FS::identity(lap.paths.skills() / "docx");
  write(pdf / "cache.tmp", "ignored");
  write(pdf / ".git" / "HEAD", "nested");
  fs::permissions(pdf / "same", fs::perms::owner_read);
  tamper([](const Path& folder) {
    write(folder / "pdf" / "file", "2");
    fs::remove_all(folder / "pdf" / "gone");
  });
  // Edited after the snapshot, or while the new content is made: no edit is lost, nothing has come in.
  const auto before = files(lap);
  for (const auto& edit : {std::pair("ls-tree", "file"), std::pair("restore", ".gitignore")}) {
    const std::string step = edit.first;
    const std::string file = edit.second;
    const OperationContext editing{.trace = [&](std::string_view command) {
      if (command.find(step) != std::string_view::npos) write(pdf / file, "edited");
    }};
    EXPECT_THAT(errorOf([&] { lap.engine().pullBackup(editing); }), IsError(Kind::conflict, "was edited meanwhile"));
    EXPECT_EQ(read(pdf / file), "edited") << step;
    file == "file" ? write(pdf / file, "1") : FS::removeAny(pdf / file);
    EXPECT_EQ(files(lap), before);
  }

  FS::Identity open = FS::identity(pdf);
  lap.engine().pullBackup({});
  EXPECT_NE(FS::identity(pdf).inode, open.inode) << "a new folder has taken the place";
  EXPECT_EQ(FS::identity(lap.paths.skills() / "docx"), other);
  EXPECT_EQ(read(pdf / "file") + read(pdf / "same") + read(pdf / "cache.tmp") + read(pdf / ".git" / "HEAD"),
            "21ignorednested");
  EXPECT_EQ(fs::status(pdf / "same").permissions(), fs::perms::owner_read);
  EXPECT_FALSE(FS::exists(pdf / "gone"));
  EXPECT_FALSE(lap.engine().backupNow(std::nullopt, {})) << "the files are the snapshot's";
}

TEST_F(BackupTest, WhatAProcessLeftHalfDoneIsTakenBackFirstByOneThatWasThereAlready) {
  add(desk, "pdf");
  desk.engine().initBackup({});
  {
    const OtherProcess killed([&](const auto& waitForTheEnd) {
      auto change = TargetChange::removal(desk.paths.skills() / "pdf", FS::Kind::directory);
      ChangeJournal::append(desk.paths.changeJournal(), {change.note()});
      change.make();
      waitForTheEnd();
    });
  }
  EXPECT_FALSE(FS::exists(desk.paths.skills() / "pdf"));
  EXPECT_FALSE(desk.engine().backupNow(std::nullopt, {})) << "nothing has changed";
  EXPECT_TRUE(FS::exists(desk.paths.skills() / "pdf" / "SKILL.md"));
  EXPECT_FALSE(FS::exists(desk.paths.changeJournal()));
}

TEST_F(BackupTest, WhatIsIgnoredHereIsNotOverwritten) {
  add(desk, "pdf");
  share(desk);
  lap.engine().restoreLibraryFromRemote(url, {});
  const Path key = lap.paths.skills() / "private" / "key";
  write(lap.paths.skills() / ".gitignore", read(lap.paths.skills() / ".gitignore") + "private/\n");
  write(key, "mine");
  tamper([](const Path& folder) { write(folder / "private" / "key", "theirs"); });
  EXPECT_THAT(errorOf([&] { lap.engine().pullBackup({}); }), IsError(Kind::refused, "private/key is ignored"));
  // A file where a folder comes, and a folder where a file does.
  fs::rename(key, lap.paths.skills() / "key");
  fs::remove(lap.paths.skills() / "private");
  fs::rename(lap.paths.skills() / "key", lap.paths.skills() / "private");
  write(lap.paths.skills() / ".gitignore", read(lap.paths.skills() / ".gitignore") + "private\nnotes\n");
  EXPECT_THAT(errorOf([&] { lap.engine().pullBackup({}); }), IsError(Kind::refused, "private is ignored"));
  EXPECT_EQ(read(lap.paths.skills() / "private"), "mine");
  fs::remove(lap.paths.skills() / "private");
  write(lap.paths.skills() / "pdf" / "notes" / "own", "mine");
  tamper([](const Path& folder) { write(folder / "pdf" / "notes", "theirs"); });
  EXPECT_THAT(errorOf([&] { lap.engine().pullBackup({}); }), IsError(Kind::refused, "pdf/notes/own is ignored"));
  EXPECT_EQ(read(lap.paths.skills() / "pdf" / "notes" / "own"), "mine");
}

}  // namespace
}  // namespace orvanta
