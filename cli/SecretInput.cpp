#include "cli/SecretInput.h"

#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include <fmt/format.h>

#include "foundations/SkillsError.h"

namespace orvanta::cli {

namespace {

// While one lives, signals that end or stop the program wait.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : signals) sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, &previousMask_);
  }
  ~HeldSignals() { ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  [[nodiscard]] static bool oneWaits() {
    sigset_t pending;
    ::sigpending(&pending);
    for (const int signal : signals) {
      if (sigismember(&pending, signal) == 1) return true;
    }
    return false;
  }

 private:
  static constexpr std::array signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

  sigset_t previousMask_{};
};

// While one lives, the terminal shows nothing of what is typed.
class Unechoed {
 public:
  Unechoed() {
    if (::tcgetattr(STDIN_FILENO, &previous_) != 0) throwNotHidden();
    termios quiet = previous_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    if (::tcsetattr(STDIN_FILENO, TCSANOW, &quiet) != 0) throwNotHidden();
  }
  ~Unechoed() { ::tcsetattr(STDIN_FILENO, TCSANOW, &previous_); }
  Unechoed(const Unechoed&) = delete;
  Unechoed& operator=(const Unechoed&) = delete;

 private:
  [[noreturn]] static void throwNotHidden() {
    const std::error_code reason(errno, std::generic_category());
    throw SkillsError::io(fmt::format(
        "The terminal cannot be kept from showing what is typed: {}. Pipe the text in instead.", reason.message()));
  }

  termios previous_{};
};

// Returns when a line is there to be read, or a signal waits.
void awaitLineOrSignal() {
  constexpr int kPauseMs = 50;
  pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  while (!HeldSignals::oneWaits() && ::poll(&input, 1, kPauseMs) == 0) continue;
}

}  // namespace

std::optional<std::string> askSecret(const Session& session, std::string_view question) {
  if (!session.canAsk()) return session.readLine();
  while (true) {
    // A signal that waits takes effect at the end of the round, with the terminal as it was.
    const HeldSignals held;
    const Unechoed unechoed;
    session.err().stream() << question << ' ' << std::flush;
    awaitLineOrSignal();
    if (!HeldSignals::oneWaits()) return session.readLine();
  }
}

}  // namespace orvanta::cli
