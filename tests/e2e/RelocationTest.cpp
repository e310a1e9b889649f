// The library moves, and nothing that happens on the way harms it.

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "files/FS.h"
#include "tests/e2e/Program.h"
#include "tests/support/OtherDisk.h"

namespace orvanta {

namespace fs = std::filesystem;

using testing::HasSubstr;

namespace {

// The system calls that change what other processes find. Writing into a file that is not in its place yet does not.
bool isChange(const __ptrace_syscall_info& info) {
  constexpr std::array kChanges{
#ifdef SYS_rename
      SYS_rename,   SYS_unlink,    SYS_mkdir,    SYS_rmdir,   SYS_symlink,
#endif
      SYS_renameat, SYS_renameat2, SYS_unlinkat, SYS_mkdirat, SYS_symlinkat, SYS_fsync, SYS_ftruncate, SYS_fchmod};
  const auto number = static_cast<long>(info.entry.nr);
  if (number == SYS_openat) return (info.entry.args[2] & O_CREAT) != 0;
  return std::find(kChanges.begin(), kChanges.end(), number) != kChanges.end();
}

enum class Ended { killed, byItself, notTraced };

// Lets a process that asked for it run up to its `nth` change, and kills it instead of letting it make that.
Ended killAtChange(pid_t id, int nth) {
  int status = 0;
  ::waitpid(id, &status, 0);
  if (!WIFSTOPPED(status) || ::ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
    ::kill(id, SIGKILL);
    return Ended::notTraced;
  }
  for (long delivered = 0;;) {
    ::ptrace(PTRACE_SYSCALL, id, nullptr, delivered);
    ::waitpid(id, &status, 0);
    if (!WIFSTOPPED(status)) return Ended::byItself;
    delivered = 0;
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
      delivered = WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
      continue;
    }
    __ptrace_syscall_info info{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, id, sizeof info, &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY || !isChange(info) || --nth > 0) continue;
    ::kill(id, SIGKILL);
    ::waitpid(id, &status, 0);
    return Ended::killed;
  }
}

}  // namespace

class Relocation : public Program {
 protected:
  Relocation() { environment.erase("ORVANTA_HOME"); }

  void givenLibrary() {
    agentInstalled("cursor");
    skillFolder(home / "all/pdf", {{"run.sh", "#!"}});
    skillFolder(home / "all/csv");
    EXPECT_EQ(orvanta({"install", "all", "--all", "--to", "cursor"}).status, 0);
    write(old / "logs/a.log", "log");
    write(old / "skills/.git/HEAD", "abc");
    fs::remove(old / ".orvanta.lock");
  }

  // The program, killed before its nth change.
  Ended killed(const Words& words, int nth) {
    const pid_t id = ::fork();
    if (id == 0) {
      const int nowhere = ::open("/dev/null", O_RDWR);
      for (int i = 0; i < 3; ++i) ::dup2(nowhere, i);
      ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      execute(words);
    }
    return killAtChange(id, nth);
  }

  static std::string contentOf(const Path& base) {
    std::string text;
    for (const auto* name : {"skills", "cache", "logs", "bin"}) text += folderAsText(base / name);
    for (auto at = text.find(base.string()); at != std::string::npos; at = text.find(base.string())) {
      text.erase(at, base.string().size());
    }
    return text;
  }

  // The library is at one of the two places as it was, and nothing of it at the other.
  void isWhole(const Path& place, const std::string& content) {
    const Path at = json({"library", "path"})["path"].get<std::string>();
    ASSERT_TRUE(at == old || at == place) << at;
    EXPECT_EQ(contentOf(at), content);
    // A folder that was just made for a move that had not yet said so is nobody's, and as good as empty.
    for (const auto& name : FS::childNames(at == old ? place : old)) {
      EXPECT_TRUE(name == ".orvanta.lock" || name.starts_with("..moving.json")) << name;
    }
    EXPECT_FALSE(FS::exists(Paths(at).moveJournal()));
    const Json skills = json({"list"});
    ASSERT_EQ(skills.size(), 2U);
    for (const auto& skill : skills) {
      const Path central = skill["record"]["centralPath"].get<std::string>();
      EXPECT_EQ(central.parent_path(), at / "skills");
      EXPECT_EQ(fs::read_symlink(home / ".cursor/skills" / central.filename()), central);
      EXPECT_TRUE(fs::exists(home / ".cursor/skills" / central.filename() / "SKILL.md"));
    }
    EXPECT_EQ(FS::childNames(home / ".cursor/skills").size(), 2U);
    EXPECT_EQ(json({"repair"})["deployed"], 0);
  }

  void survivesBeingKilled(const Path& place) {
    givenLibrary();
    const std::string content = contentOf(old);
    const Path pristine = root / "pristine";
    fs::copy(home, pristine, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    Ended ended = Ended::killed;
    int moved = 0;
    int nth = 0;
    while (ended == Ended::killed && !HasFailure()) {
      FS::removeAny(home);
      FS::removeAny(place);
      fs::copy(pristine, home, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
      ended = killed({"library", "move", place.string()}, ++nth);
      if (ended == Ended::notTraced) GTEST_SKIP() << "No process can be traced here.";
      // Putting it right can be cut short as well.
      if (ended == Ended::killed) killed({"library", "path"}, nth * 7 % 19 + 1);
      isWhole(place, content);
      moved += FS::exists(place / "orvanta.db") ? 1 : 0;
    }
    EXPECT_GT(moved, 5) << "of " << nth;
    EXPECT_LT(moved, nth - 5) << "of " << nth;
    std::printf("Killed at %d changes; the library had moved at the last %d.\n", nth - 1, moved - 1);
  }

  const Path old = home / ".orvanta";
};

TEST_F(Relocation, KilledAtAnyChangeTheLibraryIsWhole) { survivesBeingKilled(root / "new/place"); }

TEST_F(Relocation, KilledAtAnyChangeBetweenFileSystemsTheLibraryIsWhole) {
  const auto other = folderOnAnotherDiskThan(root);
  if (!other) GTEST_SKIP() << "There is no second file system.";
  survivesBeingKilled(other->path() / "place");
}

TEST_F(Relocation, ThereAndBackAsAUserDoesIt) {
  givenLibrary();
  const Path place = home / "Sync/orvanta";
  EXPECT_EQ(json({"library", "move", "Sync/orvanta", "--dry-run"}).size(), 7U);
  EXPECT_EQ(orvanta({"library", "move", "all"}).status, 1);
  EXPECT_THAT(orvanta({"library", "move", "Sync/orvanta"}).out, HasSubstr("is at ~/Sync/orvanta now. 2 links"));
  EXPECT_EQ(json({"library", "path"}), Json({{"path", place.string()}, {"relocated", true}}));
  fs::remove(home / ".cursor/skills/pdf");
  agentHas("cursor", "pdf");
  FS::removeAny(home / "new");
  const Outcome partly = orvanta({"--json", "library", "move", "new"});
  EXPECT_EQ(partly.status, 3);
  const Json report = Json::parse(partly.out);
  EXPECT_EQ(report["relinked"], 1);
  EXPECT_EQ(report["errors"].size(), 1U);
  EXPECT_EQ(report["path"], (home / "new").string());
  EXPECT_EQ(json({"library", "reset"})["path"], old.string());
  EXPECT_THAT(orvanta({"library", "reset"}).out, HasSubstr("already"));
  EXPECT_THAT(orvanta({"--library", old.string(), "library", "move", "named"}).err, HasSubstr("--library named"));
  // The disk with the library is gone.
  fs::rename(home / "named", home / "gone");
  EXPECT_EQ(json({"library", "reset", "--dry-run"}).size(), 0U);
  EXPECT_EQ(json({"library", "path"})["path"], (home / "named").string());
  EXPECT_THAT(orvanta({"library", "reset"}).out, HasSubstr("There is no library at ~/named"));
  EXPECT_EQ(json({"library", "path"}), Json({{"path", old.string()}, {"relocated", false}}));
  EXPECT_FALSE(fs::exists(home / "named"));
}

}  // namespace orvanta
