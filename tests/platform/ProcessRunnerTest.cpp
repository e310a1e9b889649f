#include "platform/ProcessRunner.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using namespace std::chrono_literals;

using SteadyClock = std::chrono::steady_clock;

// Far more than anything here takes on a busy machine, far less than the programs would run by themselves.
constexpr auto soon = 10s;

ProcessResult shell(const std::string& script, const RunOptions& options = {}) {
  return ProcessRunner::run("/bin/sh", {"-c", script}, options);
}

RunOptions limitedTo(std::chrono::milliseconds timeout) { return {.timeout = timeout}; }

// True once the process is gone; waits for the system to notice the signal.
bool disappears(pid_t pid) {
  for (int attempt = 0; attempt < 200; ++attempt) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(status, line);
    const bool zombie = line.find(") Z ") != std::string::npos;
    if (::kill(pid, 0) != 0 || zombie) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

TEST(ProcessRunner, SaysHowTheProgramEndedAndWhatItWrote) {
  struct Case {
    std::string script;
    std::int32_t exitCode;
    std::string failureText;
  };
  for (const auto& [script, exitCode, failureText] : std::vector<Case>{
           {"echo ' problem ' >&2; echo fine", 0, "problem"},
           {"printf ' \\n' >&2; echo ' said on stdout '; exit 1", 1, "said on stdout"},
           {"exit 3", 3, "exit code 3"},
           {"kill -KILL $$", 137, "exit code 137"},
           {"printf 'caf\\351 \\377' >&2; exit 1", 1, "caf\uFFFD \uFFFD"},
       }) {
    const auto result = shell(script);
    EXPECT_EQ(result.exitCode, exitCode) << script;
    EXPECT_EQ(result.succeeded(), exitCode == 0) << script;
    EXPECT_EQ(result.failureText(), failureText) << script;
  }
}

TEST(ProcessRunner, ArgumentsAreNeverReadByAShell) {
  const std::vector<std::string> arguments = {"%s|", "a b", "$HOME", "", "*", "'\""};
  EXPECT_EQ(ProcessRunner::run("/usr/bin/printf", arguments).standardOutput, "a b|$HOME||*|'\"|");
  EXPECT_THROW((void)ProcessRunner::run("/bin/echo", {std::string("a\0b", 3)}), SkillsError);
}

TEST(ProcessRunner, AProgramThatCannotStartIsAnErrorThatNamesIt) {
  const auto launchError = [](const std::string& executable, const RunOptions& options) {
    return errorOf([&] { (void)ProcessRunner::run(executable, {}, options); });
  };
  EXPECT_EQ(launchError("/no/such/program", {}),
            SkillsError::io("Failed to launch /no/such/program: No such file or directory"));
  EXPECT_EQ(launchError("/etc/passwd", {}), SkillsError::io("Failed to launch /etc/passwd: Permission denied"));
  EXPECT_EQ(launchError("/usr/bin/true", {.cwd = "/no/such/folder"}),
            SkillsError::io("Failed to launch /usr/bin/true: its working folder /no/such/folder does not exist"));
}

TEST(ProcessRunner, TheProgramSeesTheAgreedSurroundingsAndNothingElse) {
  ::setenv("ORVANTA_TEST_INHERITED", "from outside", 1);
  ::setenv("GIT_ASKPASS", "/bin/opens-a-window", 1);
  RunOptions options;
  options.cwd = "/usr";
  options.environment = {{"LC_ALL", "C"}, {"ADDED", "x=y"}};
  EXPECT_EQ(shell("pwd; echo \"$ORVANTA_TEST_INHERITED|$GIT_TERMINAL_PROMPT|$GIT_ASKPASS|$LC_ALL|$ADDED\"", options)
                .standardOutput,
            "/usr\nfrom outside|0|/usr/bin/true|C|x=y\n");
  ::unsetenv("GIT_ASKPASS");

  EXPECT_EQ(shell("cat; echo read nothing").standardOutput, "read nothing\n");
  EXPECT_FALSE(shell(": </dev/tty").succeeded()) << "nobody may be asked";

  const int leaky = ::fcntl(0, F_DUPFD, 100);
  EXPECT_FALSE(shell("test -e /dev/fd/" + std::to_string(leaky)).succeeded());
  ::close(leaky);

  ::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(shell("kill -PIPE $$").exitCode, 128 + SIGPIPE);
  ::signal(SIGPIPE, SIG_DFL);
}

TEST(ProcessRunner, WorksWhenItsOwnStandardStreamsAreClosed) {
  const int savedOut = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 50);
  const int savedErr = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 50);
  ::close(STDOUT_FILENO);
  ::close(STDERR_FILENO);
  const auto result = shell("echo out; echo err >&2");
  ::dup2(savedOut, STDOUT_FILENO);
  ::dup2(savedErr, STDERR_FILENO);
  ::close(savedOut);
  ::close(savedErr);
  EXPECT_EQ(result.standardOutput, "out\n");
  EXPECT_EQ(result.standardError, "err\n");
}

TEST(ProcessRunner, FullPipesNeverStallAndOnlySoMuchIsKept) {
  const auto both = shell("head -c 3000000 /dev/zero >&2; head -c 2000000 /dev/zero; echo end");
  EXPECT_EQ(both.standardError.size(), 3000000U);
  EXPECT_EQ(both.standardOutput.size(), 2000004U);

  const auto flood = shell("head -c 70000000 /dev/zero; echo done >&2");
  EXPECT_EQ(flood.standardOutput.size(), std::size_t{64} << 20);
  EXPECT_EQ(flood.standardError, "done\n");
}

TEST(ProcessRunner, ATimeLimitEndsTheProgramAndAllItStarted) {
  const auto start = SteadyClock::now();
  const auto polite = shell("sleep 60 & echo $!; wait", limitedTo(200ms));
  EXPECT_TRUE(polite.timedOut);
  EXPECT_FALSE(polite.succeeded());
  EXPECT_EQ(polite.exitCode, 128 + SIGTERM);
  EXPECT_LT(SteadyClock::now() - start, soon);
  EXPECT_TRUE(disappears(std::stoi(polite.standardOutput)));

  EXPECT_EQ(shell("exec sleep 60", limitedTo(50ms)).failureText(), "timed out");

  const auto stubborn = shell("trap '' TERM; while :; do sleep 0.1; done", limitedTo(100ms));
  EXPECT_TRUE(stubborn.timedOut);
  EXPECT_EQ(stubborn.exitCode, 128 + SIGKILL);

  const auto heir =
      shell("(trap '' TERM; echo $(exec sh -c 'echo $PPID'); while :; do sleep 0.1; done) & wait", limitedTo(300ms));
  EXPECT_TRUE(disappears(std::stoi(heir.standardOutput))) << "a helper that ignores SIGTERM outlives its program";

  const auto suspended = shell("kill -STOP $$; echo resumed", limitedTo(100ms));
  EXPECT_EQ(suspended.exitCode, 128 + SIGTERM) << "a suspended program must end at SIGTERM";
}

TEST(ProcessRunner, TalkingWithoutPauseDoesNotHoldOffTheTimeLimit) {
  const auto start = SteadyClock::now();
  EXPECT_TRUE(shell("exec cat /dev/zero", limitedTo(200ms)).timedOut);
  EXPECT_LT(SteadyClock::now() - start, soon);
}

TEST(ProcessRunner, ARequestedStopEndsTheProgram) {
  std::stop_source source;
  RunOptions options;
  options.stop = source.get_token();
  const auto start = SteadyClock::now();
  std::jthread user([&] {
    std::this_thread::sleep_for(100ms);
    source.request_stop();
  });
  const auto result = shell("exec sleep 60", options);
  EXPECT_TRUE(result.stopped);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.failureText(), "stopped");
  EXPECT_LT(SteadyClock::now() - start, soon);

  EXPECT_TRUE(ProcessRunner::run("/no/such/program", {}, options).stopped) << "nothing starts after the stop";
}

TEST(ProcessRunner, AHelperThatKeepsThePipesOpenIsNotWaitedForNorKilled) {
  const auto start = SteadyClock::now();
  const auto result = shell("sleep 20 & echo $!");
  EXPECT_LT(SteadyClock::now() - start, soon);
  EXPECT_TRUE(result.succeeded());
  const auto helper = std::stoi(result.standardOutput);
  EXPECT_EQ(::kill(helper, 0), 0);
  ::kill(helper, SIGKILL);

  const auto flooded = shell("cat /dev/zero & echo $! >&2");
  EXPECT_TRUE(flooded.succeeded());
  EXPECT_TRUE(disappears(std::stoi(flooded.standardError))) << "its pipe is closed, so writing ends it";

  const auto silent = shell("exec >&- 2>&-; sleep 0.3; exit 7");
  EXPECT_EQ(silent.exitCode, 7) << "closed pipes are not the end of the program";
}

TEST(ProcessRunner, RunsInParallelKeepApart) {
  std::vector<std::jthread> threads;
  std::atomic<int> wrong = 0;
  threads.reserve(8);
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&wrong, thread] {
      for (int round = 0; round < 10; ++round) {
        const auto code = thread * 10 + round;
        const auto result = shell("echo " + std::to_string(code) + "; exit " + std::to_string(code));
        if (result.exitCode != code || result.standardOutput != std::to_string(code) + "\n") ++wrong;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(wrong, 0);
}

TEST(ProcessRunner, ProgramsAreLookedUpByPlainNameInFixedFolders) {
  EXPECT_EQ(ProcessRunner::which("env"), "/usr/bin/env");
  for (const std::string name : {"", ".", "no-such-program", "../bin/sh", "/bin/sh"}) {
    EXPECT_EQ(ProcessRunner::which(name), std::nullopt) << name;
  }
}

}  // namespace
}  // namespace orvanta
