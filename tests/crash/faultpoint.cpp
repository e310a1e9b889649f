// Runs a command and disturbs it at one of the system calls by which it, or a process it starts, changes files.
//
//   faultpoint -p FOLDER… [-n N] [-m MODE] [-e ERRNO] [-H HOOK] [-w PATIENCE] [-l LOG] [-r REPORT] -- COMMAND [ARG…]
//
// The calls that change something at or below a FOLDER are numbered from 1 over all processes and threads, in the order
// in which they happen. A seccomp filter stops the processes at such calls only; everything else runs at full speed.
//
// At call N, according to MODE:
//   none      nothing; the calls are counted, and logged with -l (the default)
//   kill      all processes are killed before it
//   torn      half of what it writes is written, then all are killed; what writes nothing is as with kill
//   short     only half of what it writes is written, and the program is told so
//   error     it fails with ERRNO, a number
//   error-on  it and all later ones fail with ERRNO, but of these only what needs room if that is ENOSPC
//   hook      the caller stands still while sh runs HOOK, but PATIENCE milliseconds at most (HOOK itself is waited for)
//   cut       sh runs HOOK, then all are killed
//
// LOG gets a line for each call: process, call, bytes to be written, paths, with tabs between them. REPORT gets one
// line of JSON: {"calls": how many, "reached": whether N was, "hook": the exit status of HOOK}. The exit status is that
// of the command, 137 where it was killed here and 125 where faultpoint itself failed.

#include <elf.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kKilled = 137;
constexpr int kFailed = 125;
constexpr int kNone = -1;
constexpr int kWorkingFolder = AT_FDCWD;

// Which arguments of a call say where it acts: a descriptor, a path, or a path relative to a descriptor.
struct Place {
  int descriptor = kNone;
  int path = kNone;
};

struct Call {
  long number;
  const char* name;
  Place place;
  Place second{};
  int flags = kNone;  // the argument with flags of open(): it changes something only if it creates or truncates
  int bytes = kNone;  // the argument with how much is to be written
  bool needsRoom = true;
};

constexpr Place descriptor(int argument) { return {.descriptor = argument}; }
constexpr Place path(int argument) { return {.path = argument}; }
constexpr Place pathAt(int argument) { return {.descriptor = argument, .path = argument + 1}; }

constexpr std::array kCalls{
#ifdef SYS_open  // newer architectures have only the calls that take a descriptor as well
    Call{.number = SYS_open, .name = "open", .place = path(0), .flags = 1},
    Call{.number = SYS_creat, .name = "creat", .place = path(0)},
    Call{.number = SYS_rename, .name = "rename", .place = path(0), .second = path(1)},
    Call{.number = SYS_link, .name = "link", .place = path(0), .second = path(1)},
    Call{.number = SYS_symlink, .name = "symlink", .place = path(1)},
    Call{.number = SYS_unlink, .name = "unlink", .place = path(0), .needsRoom = false},
    Call{.number = SYS_rmdir, .name = "rmdir", .place = path(0), .needsRoom = false},
    Call{.number = SYS_mkdir, .name = "mkdir", .place = path(0)},
    Call{.number = SYS_chmod, .name = "chmod", .place = path(0), .needsRoom = false},
    Call{.number = SYS_renameat, .name = "renameat", .place = pathAt(0), .second = pathAt(2)},
#endif
    Call{.number = SYS_openat, .name = "openat", .place = pathAt(0), .flags = 2},
    Call{.number = SYS_write, .name = "write", .place = descriptor(0), .bytes = 2},
    Call{.number = SYS_pwrite64, .name = "pwrite", .place = descriptor(0), .bytes = 2},
    Call{.number = SYS_writev, .name = "writev", .place = descriptor(0)},
    Call{.number = SYS_pwritev, .name = "pwritev", .place = descriptor(0)},
    Call{.number = SYS_sendfile, .name = "sendfile", .place = descriptor(0), .bytes = 3},
    Call{.number = SYS_copy_file_range, .name = "copy_file_range", .place = descriptor(2), .bytes = 4},
    Call{.number = SYS_ioctl, .name = "ioctl(FICLONE)", .place = descriptor(0)},
    Call{.number = SYS_ftruncate, .name = "ftruncate", .place = descriptor(0)},
    Call{.number = SYS_truncate, .name = "truncate", .place = path(0)},
    Call{.number = SYS_fallocate, .name = "fallocate", .place = descriptor(0)},
    Call{.number = SYS_renameat2, .name = "renameat2", .place = pathAt(0), .second = pathAt(2)},
    Call{.number = SYS_linkat, .name = "linkat", .place = pathAt(0), .second = pathAt(2)},
    Call{.number = SYS_symlinkat, .name = "symlinkat", .place = pathAt(1)},
    Call{.number = SYS_unlinkat, .name = "unlinkat", .place = pathAt(0), .needsRoom = false},
    Call{.number = SYS_mkdirat, .name = "mkdirat", .place = pathAt(0)},
    Call{.number = SYS_fchmod, .name = "fchmod", .place = descriptor(0), .needsRoom = false},
    Call{.number = SYS_fchmodat, .name = "fchmodat", .place = pathAt(0), .needsRoom = false},
    Call{.number = SYS_utimensat, .name = "utimensat", .place = pathAt(0), .needsRoom = false},
    Call{.number = SYS_fsync, .name = "fsync", .place = descriptor(0), .needsRoom = false},
    Call{.number = SYS_fdatasync, .name = "fdatasync", .place = descriptor(0), .needsRoom = false},
    Call{.number = SYS_syncfs, .name = "syncfs", .place = descriptor(0), .needsRoom = false},
};

enum class Mode { none, kill, torn, shortened, error, errorOn, hook, cut };
constexpr std::array<std::string_view, 8> kModes{"none", "kill", "torn", "short", "error", "error-on", "hook", "cut"};

struct Options {
  std::vector<std::string> folders;
  long point = 0;
  Mode mode = Mode::none;
  int error = EIO;
  std::string hook;
  int patience = 1000;  // milliseconds
  std::string log;
  std::string report;
  char** command = nullptr;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "faultpoint: %s\n", what.c_str());
  std::exit(kFailed);
}

void must(bool succeeded, const char* what) {
  if (!succeeded) fail(std::string(what) + ": " + std::generic_category().message(errno));
}

// A process that is traced and stands before a call.
class Caller {
 public:
  Caller(pid_t id, const __ptrace_syscall_info& info) : id_(id), arguments_(info.seccomp.args) {}

  [[nodiscard]] std::uint64_t argument(int index) const { return arguments_[index]; }

  [[nodiscard]] std::string pathOf(const Place& place) const {
    const int base = place.descriptor == kNone ? kWorkingFolder : static_cast<int>(argument(place.descriptor));
    const std::string text = place.path == kNone ? "" : textAt(argument(place.path));
    if (text.starts_with('/')) return fs::path(text).lexically_normal();
    const std::string link = base == kWorkingFolder ? "cwd" : "fd/" + std::to_string(base);
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/" + std::to_string(id_) + "/" + link, error);
    return text.empty() ? folder : (folder / text).lexically_normal();
  }

  void setArgument(int index, std::uint64_t value) const {
    user_regs_struct registers = get();
#ifdef __x86_64__
    constexpr std::array kArguments{&user_regs_struct::rdi, &user_regs_struct::rsi, &user_regs_struct::rdx,
                                    &user_regs_struct::r10, &user_regs_struct::r8,  &user_regs_struct::r9};
    registers.*kArguments.at(static_cast<std::size_t>(index)) = value;
#else
    registers.regs[index] = value;
#endif
    set(registers);
  }

  // The call is not made; the program sees this error.
  void failCall(int error) const {
    user_regs_struct registers = get();
    const auto result = static_cast<std::uint64_t>(-static_cast<std::int64_t>(error));
#ifdef __x86_64__
    registers.orig_rax = static_cast<std::uint64_t>(kNone);
    registers.rax = result;
#else
    int noCall = kNone;
    iovec vector{&noCall, sizeof noCall};
    must(::ptrace(PTRACE_SETREGSET, id_, NT_ARM_SYSTEM_CALL, &vector) == 0, "Cannot skip a call");
    registers.regs[0] = result;
#endif
    set(registers);
  }

 private:
  [[nodiscard]] std::string textAt(std::uint64_t address) const {
    constexpr std::size_t kPage = 4096;
    std::string text;
    while (address != 0 && text.size() < kPage) {
      std::array<char, kPage> piece{};
      const std::size_t size = kPage - address % kPage;  // the next page may not be there
      const iovec local{piece.data(), size};
      const iovec remote{reinterpret_cast<void*>(address), size};  // NOLINT(performance-no-int-to-ptr)
      const ssize_t count = ::process_vm_readv(id_, &local, 1, &remote, 1, 0);
      if (count <= 0) break;
      const std::string_view seen(piece.data(), static_cast<std::size_t>(count));
      text += seen.substr(0, seen.find('\0'));
      if (seen.find('\0') != std::string_view::npos) break;
      address += size;
    }
    return text;
  }

  [[nodiscard]] user_regs_struct get() const {
    user_regs_struct registers{};
    iovec vector{&registers, sizeof registers};
    must(::ptrace(PTRACE_GETREGSET, id_, NT_PRSTATUS, &vector) == 0, "Cannot read registers");
    return registers;
  }

  void set(user_regs_struct registers) const {
    iovec vector{&registers, sizeof registers};
    must(::ptrace(PTRACE_SETREGSET, id_, NT_PRSTATUS, &vector) == 0, "Cannot change registers");
  }

  pid_t id_;
  const std::uint64_t* arguments_;
};

class Tracer {
 public:
  explicit Tracer(const Options& options) : options_(options) {
    if (!options.log.empty()) log_.open(options.log);
  }

  int run() {
    start();
    for (int status = 0;;) {
      const pid_t id = ::waitpid(-1, &status, __WALL);
      if (id < 0 && errno == EINTR) continue;
      if (id < 0) break;
      if (id == hook_) {
        hookStatus_ = WEXITSTATUS(status);
      } else if (WIFSTOPPED(status)) {
        stopped(id, status);
      } else {
        ended(id, status);
      }
    }
    return report(status_);
  }

 private:
  // The command waits until it is traced, so that its first call is seen as well.
  void start() {
    std::array<int, 2> gate{};
    must(::pipe2(gate.data(), O_CLOEXEC) == 0, "Cannot make a pipe");
    command_ = ::fork();
    must(command_ >= 0, "Cannot start a process");
    if (command_ == 0) becomeCommand(gate[0], gate[1]);
    constexpr auto kEvents = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                             PTRACE_O_TRACEEXEC | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
    must(::ptrace(PTRACE_SEIZE, command_, 0, kEvents) == 0, "Cannot trace the command");
    processes_.insert(command_);
    ::close(gate[0]);
    ::close(gate[1]);
  }

  [[noreturn]] void becomeCommand(int gate, int otherEnd) const {
    ::close(otherEnd);
    char nothing = 0;
    if (::read(gate, &nothing, 1) != 0 || !stopAtCalls()) ::_exit(kFailed);
    ::execvp(options_.command[0], options_.command);
    std::perror(options_.command[0]);
    ::_exit(kFailed);
  }

  static bool stopAtCalls() {
    constexpr std::uint16_t kLoad = BPF_LD | BPF_W | BPF_ABS;
    constexpr std::uint16_t kIfEqual = BPF_JMP | BPF_JEQ | BPF_K;
    constexpr std::uint16_t kReturn = BPF_RET | BPF_K;
    std::vector<sock_filter> filter{{kLoad, 0, 0, offsetof(seccomp_data, nr)}};
    for (std::size_t i = 0; i < kCalls.size(); ++i) {
      const auto toTheEnd = static_cast<std::uint8_t>(kCalls.size() - i);
      filter.push_back({kIfEqual, toTheEnd, 0, static_cast<std::uint32_t>(kCalls.at(i).number)});
    }
    filter.push_back({kReturn, 0, 0, SECCOMP_RET_ALLOW});
    filter.push_back({kReturn, 0, 0, SECCOMP_RET_TRACE});
    const sock_fprog program{static_cast<std::uint16_t>(filter.size()), filter.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
  }

  void stopped(pid_t id, int status) {
    processes_.insert(id);
    const int event = status >> 16;
    int signal = WSTOPSIG(status);
    auto onwards = PTRACE_CONT;
    if (event == PTRACE_EVENT_SECCOMP) {
      if (beforeCall(id)) onwards = PTRACE_SYSCALL;
      signal = 0;
    } else if (event != 0) {
      signal = 0;
    } else if (signal == (SIGTRAP | 0x80)) {
      killAll();  // the torn write was made
    }
    ::ptrace(onwards, id, 0, signal);
  }

  void ended(pid_t id, int status) {
    processes_.erase(id);
    if (id == command_) status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  // Returns whether the end of the call is awaited as well.
  bool beforeCall(pid_t id) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, id, sizeof info, &info) <= 0) return false;  // killed meanwhile
    const auto number = static_cast<long>(info.seccomp.nr);
    const auto* const call =
        std::find_if(kCalls.begin(), kCalls.end(), [&](const Call& each) { return each.number == number; });
    const Caller caller(id, info);
    if (call == kCalls.end() || !changes(*call, caller)) return false;
    const std::string first = caller.pathOf(call->place);
    const bool hasSecond = call->second.path != kNone;
    const std::string second = hasSecond ? caller.pathOf(call->second) : "";
    if (!isWatched(first) && !(hasSecond && isWatched(second))) return false;
    ++calls_;
    const std::uint64_t bytes = call->bytes == kNone ? 0 : caller.argument(call->bytes);
    log_ << id << '\t' << call->name << '\t' << bytes << '\t' << first << (hasSecond ? " -> " + second : "") << '\n';
    return act(*call, caller, bytes);
  }

  static bool changes(const Call& call, const Caller& caller) {
    if (call.number == SYS_ioctl) return caller.argument(1) == FICLONE || caller.argument(1) == FICLONERANGE;
    return call.flags == kNone || (caller.argument(call.flags) & (O_CREAT | O_TRUNC)) != 0;
  }

  [[nodiscard]] bool isWatched(const std::string& path) const {
    return std::any_of(options_.folders.begin(), options_.folders.end(), [&](const std::string& folder) {
      return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
    });
  }

  bool act(const Call& call, const Caller& caller, std::uint64_t bytes) {
    const bool isPoint = calls_ == options_.point;
    const bool isLater = reached_ && options_.mode == Mode::errorOn && (call.needsRoom || options_.error != ENOSPC);
    if (!isPoint && !isLater) return false;
    reached_ = true;
    const bool halves = bytes > 1;
    switch (options_.mode) {
      case Mode::none: break;
      case Mode::kill: killAll();
      case Mode::torn:
        if (!halves) killAll();
        caller.setArgument(call.bytes, bytes / 2);
        return true;
      case Mode::shortened:
        if (halves) caller.setArgument(call.bytes, bytes / 2);
        break;
      case Mode::error: caller.failCall(options_.error); break;
      case Mode::errorOn:
        if (call.needsRoom || options_.error != ENOSPC) caller.failCall(options_.error);
        break;
      case Mode::hook: runHook(std::chrono::milliseconds(options_.patience)); break;
      case Mode::cut: runHook(std::chrono::hours(1)); killAll();
    }
    return false;
  }

  void runHook(std::chrono::milliseconds patience) {
    hook_ = ::fork();
    must(hook_ >= 0, "Cannot start a process");
    if (hook_ == 0) {
      ::execl("/bin/sh", "sh", "-c", options_.hook.c_str(), nullptr);
      ::_exit(kFailed);
    }
    const auto end = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < end) {
      int status = 0;
      if (::waitpid(hook_, &status, WNOHANG) == hook_) {
        hookStatus_ = WEXITSTATUS(status);
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  [[noreturn]] void killAll() {
    for (const pid_t id : processes_) ::kill(id, SIGKILL);
    int status = 0;
    for (pid_t id = 0; id >= 0 || errno == EINTR;) {
      id = ::waitpid(-1, &status, __WALL);
      if (id > 0 && WIFSTOPPED(status)) ::kill(id, SIGKILL);  // it was started just before
    }
    std::exit(report(kKilled));
  }

  int report(int status) {
    log_.flush();
    if (options_.report.empty()) return status;
    std::ofstream file(options_.report);
    file << "{\"calls\": " << calls_ << ", \"reached\": " << (reached_ ? "true" : "false")
         << ", \"hook\": " << hookStatus_ << "}\n";
    return file.flush() ? status : kFailed;
  }

  const Options& options_;
  std::ofstream log_;
  std::set<pid_t> processes_;
  pid_t command_ = kNone;
  pid_t hook_ = kNone;
  long calls_ = 0;
  bool reached_ = false;
  int status_ = kFailed;
  int hookStatus_ = 0;
};

template <typename Number>
Number number(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.begin(), text.end(), value);
  if (error != std::errc() || end != text.end()) fail("not a number: " + std::string(text));
  return value;
}

Mode modeCalled(std::string_view name) {
  const auto* const found = std::find(kModes.begin(), kModes.end(), name);
  if (found == kModes.end()) fail("there is no mode " + std::string(name));
  return static_cast<Mode>(found - kModes.begin());
}

Options parse(int count, char** words) {
  Options options;
  for (int letter = 0; (letter = ::getopt(count, words, "+p:n:m:e:H:w:l:r:")) != kNone;) {
    switch (letter) {
      case 'p': options.folders.emplace_back(::optarg); break;
      case 'n': options.point = number<long>(::optarg); break;
      case 'm': options.mode = modeCalled(::optarg); break;
      case 'e': options.error = number<int>(::optarg); break;
      case 'H': options.hook = ::optarg; break;
      case 'w': options.patience = number<int>(::optarg); break;
      case 'l': options.log = ::optarg; break;
      case 'r': options.report = ::optarg; break;
      default: std::exit(kFailed);
    }
  }
  if (options.folders.empty() || ::optind == count) fail("a folder (-p) and a command are needed");
  options.command = words + ::optind;
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  return Tracer(options).run();
}
