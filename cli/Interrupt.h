#pragma once

// While one lives, Ctrl-C, a request to terminate and a hang-up do not kill the process: they request a stop, so that
// what is under way ends between two steps. However often they come, nothing is cut half-way. At most one at a time.

#include <signal.h>

#include <array>
#include <stop_token>
#include <thread>

#include "platform/UniqueFd.h"

namespace orvanta::cli {

class Interrupt {
 public:
  // Throws `io` when the system gives no pipe.
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  [[nodiscard]] std::stop_token token() const { return source_.get_token(); }
  [[nodiscard]] bool requested() const { return source_.stop_requested(); }

 private:
  static constexpr std::array signals{SIGINT, SIGTERM, SIGHUP};

  void waitForSignal();

  UniqueFd reader_;
  UniqueFd writer_;
  std::array<struct sigaction, signals.size()> previous_{};
  std::stop_source source_;
  std::thread waiter_;
};

}  // namespace orvanta::cli
