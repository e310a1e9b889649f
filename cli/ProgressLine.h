#pragma once

// One line on a terminal that says how far a long operation is. It appears when the operation takes longer than half a
// second and is gone when the operation ends.

#include <chrono>
#include <mutex>
#include <string_view>

#include "cli/Terminal.h"
#include "foundations/Operation.h"

namespace orvanta::cli {

class ProgressLine {
 public:
  explicit ProgressLine(const Terminal& terminal) : terminal_(&terminal) {}
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(const Progress& progress);
  // A line that stays, above this one. Any thread may call.
  void writeAbove(std::string_view text);

 private:
  using Clock = std::chrono::steady_clock;

  void clear();

  const Terminal* terminal_;
  std::mutex mutex_;
  Clock::time_point due_ = Clock::now() + std::chrono::milliseconds(500);
  bool shown_ = false;
};

}  // namespace orvanta::cli
