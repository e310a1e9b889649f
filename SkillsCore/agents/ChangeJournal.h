#pragma once

// The file that says what changes are about to be made in agents' folders, so that the next start can take back what a
// crash left half done, or clear up behind it where the records say that it was done. There is one for a library,
// written by whoever holds the library's lock, and removed when nothing is left to be done.

#include <filesystem>
#include <vector>

#include "agents/TargetChange.h"

namespace orvanta::ChangeJournal {

using Notes = std::vector<TargetChange::Note>;

// Whether there is a journal that this user alone can have written.
bool isOwn(const std::filesystem::path& file);

// Throws `io` where something else has the journal's name.
void requireOwn(const std::filesystem::path& file);

// Adds to the file, or makes it; what is added may not be on the disk yet. Throws `io`.
void append(const std::filesystem::path& file, const Notes& notes);

// Leaves these alone in the file. Throws `io` with the file unchanged.
void rewrite(const std::filesystem::path& file, const Notes& notes);

// What was added, as far as it got before a crash. A file that is not `isOwn` is not believed, nor are notes whose
// staging names are not ours or not beside their targets.
Notes read(const std::filesystem::path& file);

}  // namespace orvanta::ChangeJournal
