#pragma once

// Work over many independent items on all cores. Used for reading and copying skill folders, never for the database.
// Where threads mostly wait, as for a server, there may be more of them than cores.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orvanta {

inline std::size_t coreCount() { return std::max(1U, std::thread::hardware_concurrency()); }

// Calls work(i) once for every i below `count`, in rising order of start, on up to `threads` threads, and returns when
// all are done. Items are independent; the first exception stops the handing out of items and is rethrown.
inline void parallelFor(std::size_t count, const std::function<void(std::size_t)>& work,
                        std::size_t threads = coreCount()) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr failure;
  std::mutex failureMutex;
  const auto drain = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        work(i);
      } catch (...) {
        next = count;
        const std::lock_guard lock(failureMutex);
        if (!failure) failure = std::current_exception();
      }
    }
  };
  {
    std::vector<std::jthread> helpers;
    for (std::size_t i = 1; i < std::min(threads, count); ++i) helpers.emplace_back(drain);
    drain();
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace orvanta
