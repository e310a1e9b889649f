#include "tests/e2e/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "platform/UniqueFd.h"

namespace orvanta {

namespace {

int statusOf(pid_t id) {
  int status = 0;
  EXPECT_EQ(::waitpid(id, &status, 0), id);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool hasEnded(pid_t id) {
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT), 0);
  return info.si_pid == id;
}

bool isReadable(int fd) {
  constexpr int kPatienceMs = 10;
  pollfd poll{.fd = fd, .events = POLLIN, .revents = 0};
  return ::poll(&poll, 1, kPatienceMs) > 0 && (poll.revents & POLLIN) != 0;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Program::Program() {
  write(root / "passwd", "root:x:" + std::to_string(::getuid()) + ":0::" + home.string() + ":/bin/sh\n");
  write(root / "group", "root:x:0:\n");
  environment = {{"PATH", "/usr/bin:/bin"},
                 {"LANG", "C.UTF-8"},
                 {"TERM", "xterm"},
                 {"TMPDIR", user.temp.string()},
                 {"LD_PRELOAD", ORVANTA_NSS_WRAPPER},
                 {"NSS_WRAPPER_PASSWD", (root / "passwd").string()},
                 {"NSS_WRAPPER_GROUP", (root / "group").string()},
                 {"NSS_WRAPPER_DISABLE_DEEPBIND", "1"},  // which the address sanitizer does not suffer
                 {"ASAN_OPTIONS", "verify_asan_link_order=0"},
                 {"ORVANTA_HOME", paths.base().string()}};
}

void Program::execute(const Words& words) const {
  std::vector<std::string> arguments{"orvanta"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  if (::chdir(home.c_str()) == 0) {
    ::execve(ORVANTA_BINARY, pointersTo(arguments).data(), pointersTo(variables).data());
  }
  ::_exit(127);
}

Program::Running Program::start(const Words& words) {
  const std::string number = std::to_string(++runs_);
  Running running{-1, root / ("out" + number), root / ("err" + number)};
  running.id = ::fork();
  if (running.id == 0) {
    const std::array streams{::open("/dev/null", O_RDONLY), ::open(running.out.c_str(), O_CREAT | O_WRONLY, 0600),
                             ::open(running.err.c_str(), O_CREAT | O_WRONLY, 0600)};
    for (int i = 0; i < 3; ++i) ::dup2(streams.at(static_cast<std::size_t>(i)), i);
    execute(words);
  }
  return running;
}

Program::Outcome Program::finish(const Running& running) {
  const int status = statusOf(running.id);
  return {status, read(running.out), read(running.err)};
}

Program::Outcome Program::orvanta(const Words& words) { return finish(start(words)); }

Json Program::json(Words words) {
  words.insert(words.begin(), "--json");
  const Outcome outcome = orvanta(words);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(Json::accept(outcome.out)) << outcome.out;
  return Json::parse(outcome.out, nullptr, false);
}

Program::Outcome Program::onTerminal(const Words& words, const std::string& typed, const std::string& awaited) const {
  winsize size{};
  size.ws_col = 80;
  int terminal = -1;
  const pid_t id = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (id == 0) execute(words);
  // What was written last may be on its way still when the terminal's other end is closed, and then be lost: it is kept
  // open, and read until the program has ended and nothing more comes.
  const UniqueFd otherEnd(::open(::ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC));
  Outcome outcome;
  std::array<char, 4096> buffer{};
  for (bool ended = false, isTyped = false; !ended || isReadable(terminal);) {
    if (!isTyped && outcome.out.find(awaited) != std::string::npos) {
      EXPECT_EQ(::write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
      isTyped = true;
    }
    ended = hasEnded(id);
    if (!isReadable(terminal)) continue;
    const ssize_t count = ::read(terminal, buffer.data(), buffer.size());
    if (count > 0) outcome.out.append(buffer.data(), static_cast<std::size_t>(count));
  }
  ::close(terminal);
  outcome.status = statusOf(id);
  return outcome;
}

}  // namespace orvanta
