#pragma once

// The report that a user passes on when asking for help: one fact a line, nothing that may not be seen by others.

#include <filesystem>
#include <string>

#include "engine/Library.h"

namespace orvanta {

class Diagnostics {
 public:
  explicit Diagnostics(Library& library) : library_(library) {}

  // Writes it to a new file in the logs folder and returns that. Throws `io`.
  std::filesystem::path write(bool hasGithubToken);

 private:
  std::string report(bool hasGithubToken);

  Library& library_;
};

}  // namespace orvanta
