#pragma once

// A mutex and its guard that Clang's thread-safety analysis understands; plain ones for other compilers.

#include <mutex>

#if defined(__clang__)
#define ORVANTA_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ORVANTA_THREAD_SAFETY(attribute)
#endif

#define ORVANTA_CAPABILITY(name) ORVANTA_THREAD_SAFETY(capability(name))
#define ORVANTA_SCOPED_CAPABILITY ORVANTA_THREAD_SAFETY(scoped_lockable)
#define ORVANTA_GUARDED_BY(mutex) ORVANTA_THREAD_SAFETY(guarded_by(mutex))
#define ORVANTA_ACQUIRE(...) ORVANTA_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
// For a function whose body the analysis cannot follow; what it promises is still checked at its callers.
#define ORVANTA_UNCHECKED ORVANTA_THREAD_SAFETY(no_thread_safety_analysis)
#define ORVANTA_RELEASE(...) ORVANTA_THREAD_SAFETY(release_capability(__VA_ARGS__))

namespace orvanta {

class ORVANTA_CAPABILITY("mutex") Mutex {
 public:
  void lock() ORVANTA_ACQUIRE() { mutex_.lock(); }
  void unlock() ORVANTA_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

}  // namespace orvanta
