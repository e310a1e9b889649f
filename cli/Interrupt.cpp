#include "cli/Interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "foundations/SkillsError.h"

namespace orvanta::cli {

namespace {

constexpr char kStopWanted = 's';
constexpr char kWaitNoLonger = 'q';

std::atomic<int> pipeOfHandler{-1};

// Requesting a stop runs code that a signal handler must not run, so the handler only wakes the thread that does it.
void wakeWaiter(int /*signal*/) {
  const int error = errno;
  [[maybe_unused]] const auto written = ::write(pipeOfHandler.load(), &kStopWanted, 1);
  errno = error;
}

}  // namespace

Interrupt::Interrupt() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw SkillsError::system("Cannot make a pipe", errno);
  reader_.reset(ends[0]);
  writer_.reset(ends[1]);
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  pipeOfHandler = writer_.get();
  waiter_ = std::thread([this] { waitForSignal(); });
  struct sigaction action {};
  action.sa_handler = wakeWaiter;
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < signals.size(); ++i) {
    ::sigaction(signals[i], nullptr, &previous_[i]);
    // Whoever started us with the signal ignored (nohup, a background job) meant it.
    if (previous_[i].sa_handler != SIG_IGN) ::sigaction(signals[i], &action, nullptr);
  }
}

Interrupt::~Interrupt() {
  for (std::size_t i = 0; i < signals.size(); ++i) ::sigaction(signals[i], &previous_[i], nullptr);
  [[maybe_unused]] const auto written = ::write(writer_.get(), &kWaitNoLonger, 1);
  waiter_.join();
  pipeOfHandler = -1;
}

void Interrupt::waitForSignal() {
  char message = 0;
  while (message != kWaitNoLonger) {
    const auto count = ::read(reader_.get(), &message, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    if (message == kStopWanted) source_.request_stop();
  }
}

}  // namespace orvanta::cli
