#include "platform/ProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>

#include <fmt/core.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/UniqueFd.h"

// Not every system's headers declare it.
extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace orvanta {

namespace {

using SteadyClock = std::chrono::steady_clock;
using Instant = SteadyClock::time_point;

constexpr std::size_t keptBytes = std::size_t{64} << 20;
constexpr auto killDelay = std::chrono::seconds(2);
// How long a helper that still holds the pipes may finish what it was writing once the program has ended.
constexpr auto drainDelay = std::chrono::milliseconds(100);
// Keeps deadlines far inside the clock's range.
constexpr std::chrono::milliseconds longestTimeout = std::chrono::hours(24 * 365);

struct Pipe {
  UniqueFd reader;
  UniqueFd writer;
};

// A caller without standard streams would otherwise get a pipe at descriptor 1 or 2, which the child's redirections
// then overwrite.
UniqueFd aboveStandardStreams(UniqueFd fd) {
  if (fd.get() > STDERR_FILENO) return fd;
  return UniqueFd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
#ifdef __APPLE__
  const bool made = ::pipe(ends.data()) == 0;
#else
  const bool made = ::pipe2(ends.data(), O_CLOEXEC) == 0;
#endif
  if (!made) throw SkillsError::system("Failed to make a pipe", errno);
  Pipe pipe{UniqueFd(ends[0]), UniqueFd(ends[1])};
#ifdef __APPLE__
  ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
#endif
  pipe.reader = aboveStandardStreams(std::move(pipe.reader));
  pipe.writer = aboveStandardStreams(std::move(pipe.writer));
  if (!pipe.reader || !pipe.writer) throw SkillsError::system("Failed to make a pipe", errno);
  ::fcntl(pipe.reader.get(), F_SETFL, O_NONBLOCK);
  return pipe;
}

// Wakes the loop that waits for the program's output. Any thread may call `wake`.
class Alarm {
 public:
  Alarm() { ::fcntl(pipe_.writer.get(), F_SETFL, O_NONBLOCK); }

  void wake() {
    const char byte = 0;
    // A full pipe wakes just as well.
    [[maybe_unused]] const auto written = ::write(pipe_.writer.get(), &byte, 1);
  }

  void silence() {
    std::array<char, 64> buffer{};
    while (::read(pipe_.reader.get(), buffer.data(), buffer.size()) > 0) {
    }
  }

  [[nodiscard]] int get() const { return pipe_.reader.get(); }

 private:
  Pipe pipe_ = makePipe();
};

// One output stream of the program.
class Stream {
 public:
  [[nodiscard]] int writer() const { return pipe_.writer.get(); }
  [[nodiscard]] int reader() const { return pipe_.reader.get(); }
  [[nodiscard]] bool atEnd() const { return !pipe_.reader; }

  // The program has its own copy of the writing end; the stream ends when all copies are closed.
  void handOver() { pipe_.writer.reset(); }

  // Takes what lies ready, at most what a pipe can hold, so that a program that never pauses cannot keep the loop
  // from looking at the clock.
  void takeReady() {
    constexpr std::size_t largestPipe = std::size_t{1} << 20;
    for (std::size_t taken = 0; !atEnd() && taken < largestPipe;) {
      const auto count = ::read(reader(), buffer_.data(), buffer_.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0 && errno == EAGAIN) return;
      if (count <= 0) {
        pipe_.reader.reset();
        return;
      }
      keep({buffer_.data(), static_cast<std::size_t>(count)});
      taken += static_cast<std::size_t>(count);
    }
  }

  [[nodiscard]] const std::string& bytes() const { return kept_; }
  [[nodiscard]] std::string text() const { return Text::repairUTF8(kept_); }

 private:
  void keep(std::string_view bytes) { kept_.append(bytes.substr(0, keptBytes - kept_.size())); }

  Pipe pipe_ = makePipe();
  std::string kept_;
  std::array<char, std::size_t{64} << 10> buffer_{};
};

// A started program, leader of its own process group. It stays a zombie until `reap`, so its number cannot pass to a
// stranger while signals may still be sent to it.
class Child {
 public:
  Child(pid_t pid, Alarm& alarm) : pid_(pid) {
    try {
      waiter_ = std::thread([this, &alarm] {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        ended_ = true;
        alarm.wake();
      });
    } catch (const std::system_error& error) {
      reap();
      throw SkillsError::system("Failed to wait for a program", error.code().value());
    }
  }

  ~Child() { reap(); }

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  [[nodiscard]] bool ended() const { return ended_; }

  void terminate() const {
    ::kill(-pid_, SIGTERM);
    // A program that was suspended must run to see the request.
    ::kill(-pid_, SIGCONT);
  }

  void kill() const { ::kill(-pid_, SIGKILL); }

  // The exit code of an ended program.
  std::int32_t reapEnded() {
    waiter_.join();
    const auto status = waitForStatus();
    // Something else in this process took the status: nothing is known, which must not pass for success.
    if (!status) return 255;
    return WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : WEXITSTATUS(*status);
  }

 private:
  void reap() {
    if (reaped_) return;
    kill();
    if (waiter_.joinable()) waiter_.join();
    waitForStatus();
  }

  std::optional<int> waitForStatus() {
    int status = 0;
    pid_t reaped = -1;
    do {
      reaped = ::waitpid(pid_, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    reaped_ = true;
    return reaped == pid_ ? std::optional(status) : std::nullopt;
  }

  const pid_t pid_;
  std::thread waiter_;
  std::atomic<bool> ended_ = false;
  bool reaped_ = false;
};

// Ends the program in two steps once its time is up or a stop is requested.
class Watchdog {
 public:
  explicit Watchdog(const RunOptions& options)
      : stop_(options.stop), next_(SteadyClock::now() + std::min(options.timeout, longestTimeout)) {}

  void check(const Child& child) {
    const auto now = SteadyClock::now();
    if (step_ == Step::running && (now >= next_ || stop_.stop_requested())) {
      timedOut_ = now >= next_;
      child.terminate();
      step_ = Step::terminated;
      next_ = now + killDelay;
    } else if (step_ == Step::terminated && now >= next_) {
      child.kill();
      step_ = Step::killed;
    }
  }

  // When to check again at the latest; none: there is nothing left to do.
  [[nodiscard]] std::optional<Instant> next() const {
    if (step_ == Step::killed) return std::nullopt;
    return next_;
  }

  [[nodiscard]] bool intervened() const { return step_ != Step::running; }
  [[nodiscard]] bool timedOut() const { return timedOut_; }

 private:
  enum class Step { running, terminated, killed };

  const std::stop_token stop_;
  Step step_ = Step::running;
  Instant next_;
  bool timedOut_ = false;
};

class SpawnActions {
 public:
  SpawnActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;

  void redirect(const Stream& out, const Stream& err) {
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, out.writer(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions_, err.writer(), STDERR_FILENO);
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
  }

  void changeFolder(const std::filesystem::path& folder) {
    ::posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str());
  }

  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
 public:
  SpawnAttributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &signalsOfTheRunner());
    auto flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID;
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    ::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  // A program inherits what this process ignores; these must work for it to be ended, and to end with its reader.
  static const sigset_t& signalsOfTheRunner() {
    static const sigset_t signals = [] {
      sigset_t set;
      ::sigemptyset(&set);
      for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD}) ::sigaddset(&set, signal);
      return set;
    }();
    return signals;
  }

  posix_spawnattr_t attributes_{};
};

// A parent that ignores SIGCHLD hands that on to us, and the system would then forget every child's exit status.
void keepExitStatuses() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};
    if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) ::signal(SIGCHLD, SIG_DFL);
  });
}

std::map<std::string, std::string> childEnvironment(const RunOptions& options) {
  std::map<std::string, std::string> result = options.environment;
  result.insert({{"GIT_TERMINAL_PROMPT", "0"}, {"GIT_ASKPASS", "/usr/bin/true"}, {"LC_ALL", "en_US.UTF-8"}});
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const auto separator = text.find('=');
    if (separator == std::string_view::npos || options.withheld.contains(text.substr(0, separator))) continue;
    result.emplace(text.substr(0, separator), text.substr(separator + 1));
  }
  return result;
}

void refuseNUL(const std::filesystem::path& executable, const std::vector<std::string>& texts) {
  const auto holdsNUL = [](const std::string& text) { return text.find('\0') != std::string::npos; };
  if (std::none_of(texts.begin(), texts.end(), holdsNUL)) return;
  throw SkillsError::invalidInput(
      fmt::format("Failed to launch {}: an argument or environment variable contains a NUL byte", executable.string()));
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (auto& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

pid_t launch(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
             const RunOptions& options, const Stream& out, const Stream& err) {
  const auto what = "Failed to launch " + executable.string();
  std::vector<std::string> words = {executable.string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : childEnvironment(options)) variables.push_back(fmt::format("{}={}", name, value));
  refuseNUL(executable, words);
  refuseNUL(executable, variables);

  SpawnActions actions;
  actions.redirect(out, err);
  if (options.cwd) {
    std::error_code error;
    if (!std::filesystem::is_directory(*options.cwd, error)) {
      throw SkillsError::io(fmt::format("{}: its working folder {} does not exist", what, options.cwd->string()));
    }
    actions.changeFolder(*options.cwd);
  }
  const SpawnAttributes attributes;
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, executable.c_str(), actions.get(), attributes.get(), pointers(words).data(),
                                  pointers(variables).data());
  if (error != 0) throw SkillsError::system(what, error);
  return pid;
}

void sleepUntilSomethingHappens(const Alarm& alarm, const Stream& out, const Stream& err,
                                std::optional<Instant> deadline) {
  std::array<pollfd, 3> watched{{{alarm.get(), POLLIN, 0}, {out.reader(), POLLIN, 0}, {err.reader(), POLLIN, 0}}};
  int wait = -1;
  if (deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - SteadyClock::now());
    wait = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, std::int64_t{1} << 30));
  }
  ::poll(watched.data(), watched.size(), wait);
}

// Reads both streams and minds the clock until the program has ended and its output is complete.
void follow(const Child& child, Alarm& alarm, Watchdog& watchdog, Stream& out, Stream& err) {
  std::optional<Instant> drained;
  const auto finished = [&] { return drained && ((out.atEnd() && err.atEnd()) || SteadyClock::now() >= *drained); };
  while (!finished()) {
    sleepUntilSomethingHappens(alarm, out, err, drained ? drained : watchdog.next());
    alarm.silence();
    // The end is noted before reading: all that the program itself wrote is then in the pipes.
    if (child.ended() && !drained) drained = SteadyClock::now() + drainDelay;
    out.takeReady();
    err.takeReady();
    if (!child.ended()) watchdog.check(child);
  }
}

}  // namespace

std::string ProcessResult::failureText() const {
  for (const auto& text : {standardError, standardOutput}) {
    if (const auto trimmed = Text::trim(text); !trimmed.empty()) return std::string(trimmed);
  }
  if (timedOut) return "timed out";
  if (stopped) return "stopped";
  return fmt::format("exit code {}", exitCode);
}

namespace ProcessRunner {

ProcessResult run(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                  const RunOptions& options) {
  if (options.stop.stop_requested()) return {.exitCode = 128 + SIGTERM, .stopped = true};
  keepExitStatuses();
  Alarm alarm;
  Stream out;
  Stream err;
  Watchdog watchdog(options);
  Child child(launch(executable, arguments, options, out, err), alarm);
  out.handOver();
  err.handOver();
  {
    const std::stop_callback wakeOnStop(options.stop, [&alarm] { alarm.wake(); });
    follow(child, alarm, watchdog, out, err);
  }
  // What ignored the request to end must not outlive its program.
  if (watchdog.intervened()) child.kill();

  ProcessResult result;
  result.exitCode = child.reapEnded();
  result.standardOutput = options.keepsBytes ? out.bytes() : out.text();
  result.standardError = err.text();
  result.timedOut = watchdog.timedOut();
  result.stopped = watchdog.intervened() && !watchdog.timedOut();
  return result;
}

std::optional<std::filesystem::path> which(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  for (const std::filesystem::path folder : {"/usr/bin", "/bin", "/usr/local/bin", "/opt/homebrew/bin"}) {
    const auto candidate = folder / name;
    std::error_code error;
    if (std::filesystem::is_regular_file(candidate, error) && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

}  // namespace ProcessRunner

}  // namespace orvanta
