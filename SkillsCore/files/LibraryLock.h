#pragma once

// The advisory lock that lets one process at a time change a library. The system drops it when its holder ends, however
// it ends, so it is never stale; the file itself stays and only says who holds it. Readers do not take it.

#include <chrono>
#include <filesystem>
#include <optional>

#include "platform/UniqueFd.h"

namespace orvanta {

// How long an operation waits for another process.
inline constexpr std::chrono::seconds kLockPatience{10};

class LibraryLock {
 public:
  // Waits up to `patience` for the lock. Throws `conflict` naming the holder when another process keeps it longer, `io`
  // when the lock file cannot be opened. Whoever waited while the library moved away gets a `conflict` as well.
  static LibraryLock acquire(const std::filesystem::path& file, std::chrono::milliseconds patience);

  // The lock when it is free and the file can be written; nothing otherwise.
  static std::optional<LibraryLock> tryAcquire(const std::filesystem::path& file);

 private:
  explicit LibraryLock(UniqueFd fd) : fd_(std::move(fd)) {}

  UniqueFd fd_;
};

}  // namespace orvanta
