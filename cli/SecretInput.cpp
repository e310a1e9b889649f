#include "cli/SecretInput.h"

#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace orvanta::cli {

namespace {

// While one lives, the terminal shows nothing of what is typed, and signals wait, since one that ends the program would
// leave the terminal so.
class Unechoed {
 public:
  Unechoed() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : signals) sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, &previousMask_);
    ::tcgetattr(STDIN_FILENO, &previous_);
    termios quiet = previous_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  ~Unechoed() {
    ::tcsetattr(STDIN_FILENO, TCSANOW, &previous_);
    ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
  }
  Unechoed(const Unechoed&) = delete;
  Unechoed& operator=(const Unechoed&) = delete;

  // Returns when a line is there to be read, or a signal waits.
  static void wait() {
    constexpr int kPauseMs = 50;
    pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    while (!signalWaits() && ::poll(&input, 1, kPauseMs) == 0) continue;
  }
  static bool signalWaits() {
    sigset_t pending;
    ::sigpending(&pending);
    for (const int signal : signals) {
      if (sigismember(&pending, signal) == 1) return true;
    }
    return false;
  }

 private:
  static constexpr std::array signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

  termios previous_{};
  sigset_t previousMask_{};
};

}  // namespace

std::optional<std::string> askSecret(const Session& session, std::string_view question) {
  if (!session.canAsk()) return session.readLine();
  const Unechoed unechoed;
  session.err().stream() << question << ' ' << std::flush;
  Unechoed::wait();
  return Unechoed::signalWaits() ? std::nullopt : session.readLine();
}

}  // namespace orvanta::cli
