#pragma once

// Where the library of an engine is, for any thread to ask while another moves it. What was answered once stays valid
// as long as the engine lives.

#include <atomic>
#include <list>

#include "files/Paths.h"

namespace orvanta {

class PathsInForce {
 public:
  explicit PathsInForce(const Paths& paths) : all_{paths}, current_(&all_.back()) {}

  [[nodiscard]] const Paths& current() const { return *current_.load(); }

  // For one thread at a time.
  void change(const Paths& paths) {
    if (paths != current()) current_ = &all_.emplace_back(paths);
  }

 private:
  std::list<Paths> all_;
  std::atomic<const Paths*> current_;
};

}  // namespace orvanta
