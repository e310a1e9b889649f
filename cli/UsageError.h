#pragma once

// A command line that cannot be carried out as it was typed.

#include <stdexcept>

namespace orvanta::cli {

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace orvanta::cli
