#pragma once

// What a library on its way to another folder leaves behind for whoever opens it after the move was cut short: a note
// in the old folder that names the new one, and a note in the new folder that names the old one. Only two notes that
// name each other are believed, since anybody may have written a file.
//
// The old folder's note is written before anything else and goes last when the move is taken back; the new folder's is
// written before anything is moved and goes last when the move is finished. That the old folder's note says `moved` is
// the one moment from which on the library is at the new folder.

#include <filesystem>
#include <optional>
#include <string_view>

#include "files/Paths.h"

namespace orvanta::MoveJournal {

// In the old folder.
struct Departure {
  std::filesystem::path to;
  int createdFolders = 0;  // how many folders were made for the new place: its own and missing ones above it
  bool moved = false;
};

// In the new folder.
struct Arrival {
  std::filesystem::path from;
  bool renames = false;  // the folders come by renames, and not as copies
  bool moved = false;
};

[[nodiscard]] bool exists(const Paths& base);

// None where there is no such note, or none that is ours.
[[nodiscard]] std::optional<Departure> departure(const Paths& base);
[[nodiscard]] std::optional<Arrival> arrival(const Paths& base);

// Replaces the note there; it is on the disk when this returns. Throws `io`.
void write(const Paths& base, const Departure& departure);
void write(const Paths& base, const Arrival& arrival);

// Removes the note and half-written ones; nothing there is no error. Throws `io`.
void remove(const Paths& base);

// Whether a file of this name belongs to the journal.
[[nodiscard]] bool isJournalName(std::string_view name);

}  // namespace orvanta::MoveJournal
