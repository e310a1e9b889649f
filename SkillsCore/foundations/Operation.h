#pragma once

// What a long operation is told from outside: when to stop, and whom to tell how far it is.

#include <cstddef>
#include <functional>
#include <stop_token>
#include <string_view>

namespace orvanta {

struct Progress {
  std::string_view what;  // "Deploying", "Hashing": valid during the call only
  std::size_t done = 0;
  std::size_t total = 0;
};

// Both parts are optional. An operation over many items looks at `stop` between items: what is done by then stays done,
// is recorded and reported. `progress` is called from one thread at a time and must not call back into the engine.
struct OperationContext {
  std::stop_token stop;
  std::function<void(const Progress&)> progress;
  // Told of each command and request that leaves the process, once it has ended, with its time; credentials are hidden.
  // Called from any thread.
  std::function<void(std::string_view line)> trace;

  void report(std::string_view what, std::size_t done, std::size_t total) const {
    if (progress) progress({what, done, total});
  }
};

}  // namespace orvanta
