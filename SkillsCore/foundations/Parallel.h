#pragma once

// Work over many independent items, on all cores or on as many threads as may wait for the network at once. Used for
// folders and requests, never for the database.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orvanta {

// Calls work(i) once for every i below `count`, in rising order of start, on up to `threads` threads, and returns when
// all are done. Items are independent; the first exception stops the handing out of items and is rethrown.
inline void parallelFor(std::size_t count, const std::function<void(std::size_t)>& work, std::size_t threads) {
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

// On one thread per core.
inline void parallelFor(std::size_t count, const std::function<void(std::size_t)>& work) {
  parallelFor(count, work, std::max(1U, std::thread::hardware_concurrency()));
}

}  // namespace orvanta
