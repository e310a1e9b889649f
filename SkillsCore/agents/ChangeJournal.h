#pragma once

// The file that says what changes are about to be made in agents' folders, so that the next start can take back what a
// crash left half done, or clear up behind it where the records say that it was done. There is one for a library,
// written anew by each operation while it holds the library's lock, and removed when nothing is left to be done.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "agents/TargetChange.h"

namespace orvanta {

struct ChangeJournal {
  std::string id;  // of the operation
  std::vector<TargetChange::Note> notes;

  // Writes the file anew; it may not be on the disk yet. Throws `io`.
  void write(const std::filesystem::path& file) const;

  // What was written, as far as it got before a crash; nothing when there is no such file. Notes whose staging names
  // are not beside their targets, or not ours, are left out: nobody can have another's files moved by such a file.
  static std::optional<ChangeJournal> read(const std::filesystem::path& file);
};

}  // namespace orvanta
