// No accident leaves half of a pull, a restore or a clone.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "tests/support/SharedLibraries.h"

namespace orvanta {
namespace {

namespace fs = std::filesystem;

// Operations that end by force once a certain command of git has ended.
class KilledBackups : public SharedLibraries {
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
