#pragma once

// How a run ended, as the shell sees it.

#include <cstddef>

namespace orvanta::cli {

enum class ExitStatus {
  done = 0,
  failed = 1,
  usage = 2,   // the command line was wrong or incomplete; nothing was tried
  partly = 3,  // a bulk command did part of it and reported the rest
  interrupted = 130,
};

// The status of a command over many items.
constexpr ExitStatus bulkStatus(std::size_t done, std::size_t failed, bool interrupted) {
  if (interrupted) return ExitStatus::interrupted;
  if (failed == 0) return ExitStatus::done;
  return done == 0 ? ExitStatus::failed : ExitStatus::partly;
}

}  // namespace orvanta::cli
