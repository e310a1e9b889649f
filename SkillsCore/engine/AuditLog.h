#pragma once

// The audit log as users read, export and clear it.

#include <filesystem>

#include "engine/Library.h"

namespace orvanta {

class AuditLog {
 public:
  explicit AuditLog(Library& library) : library_(library) {}

  // Writes the newest 10,000 entries to a new file in the logs folder and returns it. Throws `io`.
  std::filesystem::path exportEntries();
  // Leaves one entry that says that the log was cleared.
  void clear();

 private:
  Library& library_;
};

}  // namespace orvanta
