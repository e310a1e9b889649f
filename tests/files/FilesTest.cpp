// Simple changes to files, whole trees, and the lock, on real files with every trouble they can make.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "files/FS.h"
#include "files/LibraryLock.h"
#include "files/TemporaryFolder.h"
#include "files/TreeCopy.h"
#include "foundations/Clock.h"
#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;
using Kind = SkillsError::Kind;
using namespace std::chrono_literals;

using FilesTest = Sandbox;
using TreeCopyTest = Sandbox;
using LibraryLockTest = Sandbox;

TEST_F(FilesTest, RemovingNeverReachesThroughALink) {
  folder(root / "kept", {{"file", "precious"}});
  const std::string before = folderAsText(root / "kept");
  fs::create_directories(root / "victim");
  fs::create_directory_symlink(root / "kept", root / "victim" / "link");
  fs::create_directory_symlink(root / "kept", root / "link");
  FS::removeAny(root / "victim");
  FS::removeAny(root / "link");
  FS::removeAny(root / "absent");
  EXPECT_FALSE(FS::exists(root / "victim") || FS::exists(root / "link"));

  EXPECT_EQ(errorOf([&] { FS::removeSymlink(root / "kept"); }),
            SkillsError::refused("Refusing to remove " + (root / "kept").string() + ": not a symbolic link"));
  EXPECT_EQ(folderAsText(root / "kept"), before);
}

TEST_F(FilesTest, FoldersThatForbidTheirOwnerAreRemovedToo) {
  for (const mode_t mode : {0000U, 0100U, 0300U, 0500U}) {
    const Path victim = folder(root / "forbidden" / std::to_string(mode), {{"a/b/file", ""}, {"file", ""}});
    ::chmod((victim / "a/b").c_str(), mode);
    ::chmod((victim / "a").c_str(), mode);
    ::chmod(victim.c_str(), mode);
  }
  asOrdinaryUser([&] {
    FS::removeAny(root / "forbidden");
    EXPECT_FALSE(FS::exists(root / "forbidden"));
  });
}

TEST_F(FilesTest, AFolderDeeperThanThereAreDescriptorsIsRemovedToo) {
  std::string deep = (root / "deep").string();
  for (int level = 0; level < 500; ++level, deep += "/d") ASSERT_EQ(::mkdir(deep.c_str(), 0700), 0);
  inAnotherProcess([&] {
    const rlimit few{128, 128};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    FS::removeAny(root / "deep");
    EXPECT_FALSE(FS::exists(root / "deep"));
  });
}

TEST_F(FilesTest, AFileIsWrittenAsAWholeOrNotAtAll) {
  folder(root / "f", {{"file", "old"}});
  FS::writeAtomically(root / "f/file", "new");
  EXPECT_EQ(read(root / "f/file"), "new");

  const std::string before = folderAsText(root / "f");
  inAnotherProcess([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1000, 1000};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_THAT(errorOf([&] { FS::writeAtomically(root / "f/file", std::string(5000, 'x')); }),
                IsError(Kind::io, (root / "f/file").string()));
  });
  EXPECT_EQ(folderAsText(root / "f"), before);

  write(root / "victim", "theirs");
  const std::vector<std::pair<std::string, std::function<void(const Path&)>>> obstacles{
      {"a folder",
       [&](const Path& at) {
         folder(at, {{"mine", "mine"}});
       }},
      {"a link", [&](const Path& at) { fs::create_symlink(root / "victim", at); }},
      {"a second name", [&](const Path& at) { fs::create_hard_link(root / "victim", at); }},
      {"a fifo", [](const Path& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); }}};
  for (const auto& [name, putAt] : obstacles) {
    putAt(root / "f/.file.orvanta.tmp");
    FS::writeAtomically(root / "f/file", "first");
    const std::string withObstacle = folderAsText(root / "f");
    FS::writeAtomically(root / "f/file", "second");
    EXPECT_EQ(read(root / "f/file"), "second") << name;
    FS::writeAtomically(root / "f/file", "first");
    EXPECT_EQ(folderAsText(root / "f"), withObstacle) << name;
    EXPECT_EQ(read(root / "victim"), "theirs") << name;
    FS::removeAny(root / "f/.file.orvanta.tmp");
  }
}

TEST_F(FilesTest, RenamingNeverReplacesAndExchangingLosesNothing) {
  folder(root, {{"a/1", "a"}, {"b/1", "b"}});
  const std::string before = folderAsText(root);
  fs::create_directory(root / "empty");
  for (const auto* taken : {"b", "b/1", "empty"}) {
    EXPECT_THAT(errorOf([&] { FS::renameExclusive(root / "a", root / taken); }), IsError(Kind::conflict, taken));
  }
  EXPECT_THAT(errorOf([&] { FS::exchange(root / "a", root / "absent"); }), IsError(Kind::io, "absent"));
  fs::remove(root / "empty");
  EXPECT_EQ(folderAsText(root), before);
  FS::exchange(root / "a", root / "b/1");
  EXPECT_EQ(read(root / "a"), "b");
  EXPECT_EQ(read(root / "b/1/1"), "a");
}

TEST_F(FilesTest, OnlyAbandonedTemporaryFoldersOfOursAreSweptUp) {
  const TemporaryFolder used(user.temp, "orvanta-clone-");
  OtherProcess worker([&](const auto& waitForTheEnd) {
    const TemporaryFolder left(user.temp, "orvanta-diff-");
    write(left.path() / "file", "");
    waitForTheEnd();
  });
  for (const auto* other : {"orvanta-clone-notes-2024", "somebody-12345678"}) fs::create_directory(user.temp / other);
  fs::create_directory_symlink(used.path(), user.temp / "orvanta-clone-12345678");
  removeAbandonedTempDirs(user.temp);
  EXPECT_EQ(FS::children(user.temp).size(), 5U);
  worker.kill();
  removeAbandonedTempDirs(user.temp);
  EXPECT_EQ(FS::children(user.temp).size(), 4U);
  EXPECT_TRUE(FS::exists(used.path()));
}

TEST_F(TreeCopyTest, ACopyIsTheSameTreeWithPermissionsTimesAndLinks) {
  const Path from =
      folder(root / "from", {{"run.sh", "#!"}, {"sub/deep/text", "t"}, {"caf\xE9", "latin"}, {"empty", ""}});
  write(from / "big", std::string(700'000, 'x'));
  fs::create_symlink("../outside", from / "sub/relative");
  fs::create_symlink("/nowhere/at/all", from / "dangling");
  ::chmod((from / "run.sh").c_str(), 0755);
  ::chmod((from / "empty").c_str(), 0400);
  for (const auto* path : {"run.sh", "sub/deep/text", "sub/deep", "sub", ""}) {
    fs::last_write_time(from / path, fs::file_time_type::clock::now() - 100h);
  }
  ::chmod((from / "sub").c_str(), 0555);
  asOrdinaryUser([&] {
    FS::copyTree(from, root / "new/parents/to");
    FS::renameExclusive(root / "new/parents/to", root / "to");
    EXPECT_EQ(folderAsText(root / "to"), folderAsText(from));
    for (const auto* path : {"run.sh", "sub/deep/text", "sub/deep", "sub", ""}) {
      EXPECT_EQ(fs::last_write_time(root / "to" / path), fs::last_write_time(from / path)) << path;
    }
  });
}

TEST_F(TreeCopyTest, WhatMustNotTravelStaysBehind) {
  const Path from =
      folder(root / "from", {{".git/config", ""}, {"sub/.git", "gitdir: x"}, {".DS_Store", ""}, {"kept", ""}});
  ASSERT_EQ(::mkfifo((from / "fifo").c_str(), 0600), 0);
  write(from / "setuid", "", 04755);
  FS::copySkillTree(from, root / "skill");
  const std::string skill = folderAsText(root / "skill");
  for (const auto* left : {".git", ".DS_Store", "fifo", "4755"}) EXPECT_EQ(skill.find(left), std::string::npos) << left;
  EXPECT_TRUE(fs::is_directory(root / "skill/sub"));
  FS::copyTree(from, root / "tree");
  EXPECT_TRUE(FS::exists(root / "tree/.DS_Store"));
  EXPECT_FALSE(FS::exists(root / "tree/.git"));
}

TEST_F(TreeCopyTest, AFailedCopyIsAnErrorAndReplacesNothing) {
  const Path from = folder(root / "from", {{"a", "1"}, {"secret", "2"}});
  fs::create_directory_symlink(from, root / "alias");
  folder(root / "taken", {{"mine", "3"}});
  const std::string before = folderAsText(root);
  for (const auto& to : {from / "inside", from, root, root / "alias" / "inside"}) {
    EXPECT_THAT(errorOf([&] { FS::copyTree(from, to); }),
                IsError(Kind::invalidInput, "Source and destination overlap"));
  }
  EXPECT_THAT(errorOf([&] { FS::copyTree(from, root / "taken"); }), IsError(Kind::io, "taken"));
  EXPECT_THAT(errorOf([&] { FS::copyTree(root / "absent", root / "to"); }), IsError(Kind::io, "absent"));
  EXPECT_EQ(folderAsText(root), before);
  ::chmod((from / "secret").c_str(), 0000);
  asOrdinaryUser([&] { EXPECT_THAT(errorOf([&] { FS::copyTree(from, root / "to"); }), IsError(Kind::io, "secret")); });
}

TEST_F(LibraryLockTest, TheSecondProcessIsToldWhoHoldsTheLockAndGetsItWhenThatIsKilled) {
  paths.ensureDirectories();
  OtherProcess holder([&](const auto& waitForTheEnd) {
    const auto lock = LibraryLock::acquire(paths.lock(), 0ms);
    waitForTheEnd();
  });
  EXPECT_THAT(errorOf([&] { LibraryLock::acquire(paths.lock(), 20ms); }),
              IsError(Kind::conflict, "process " + std::to_string(holder.id()) + " "));
  EXPECT_FALSE(LibraryLock::tryAcquire(paths.lock()));
  holder.kill();
  EXPECT_TRUE(LibraryLock::tryAcquire(paths.lock()));
}

TEST_F(LibraryLockTest, WhoeverWaitsGetsTheLockAsSoonAsItIsFree) {
  paths.ensureDirectories();
  std::optional<LibraryLock> lock = LibraryLock::acquire(paths.lock(), 0ms);
  EXPECT_FALSE(LibraryLock::tryAcquire(paths.lock())) << "not even within one process";
  const auto start = std::chrono::steady_clock::now();
  const std::jthread holder([&] {
    std::this_thread::sleep_for(50ms);
    lock.reset();
  });
  LibraryLock::acquire(paths.lock(), 60s);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

}  // namespace
}  // namespace orvanta
