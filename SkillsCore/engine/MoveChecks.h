#pragma once

// Whether the library can move to a folder, looked at before anything is touched.

#include <cstdint>
#include <filesystem>

#include "engine/Library.h"

namespace orvanta {

class MoveChecks {
 public:
  MoveChecks(Library& library, const Paths& to) : library_(library), to_(to) {}

  // The destination is where the library is, however it is spelled.
  [[nodiscard]] bool isHere() const;

  // Throws `invalidInput` for a destination that cannot be the library's folder, `conflict` while something in the
  // library is being worked on, `io` when there is no room.
  void require();

  // The destination holds nothing. Throws `invalidInput`.
  void requireEmpty() const;

  // Whether what is on the disk at the old place can get a name at the new one without being copied, as far as can be
  // told before the new place is there.
  [[nodiscard]] bool isOnOneDisk() const;

  // Throws `io` when so many bytes do not fit.
  void requireRoom(std::int64_t bytes) const;

  // The bytes of the library's folders and database.
  [[nodiscard]] std::int64_t size() const;

  // How many folders have to be made for the destination.
  [[nodiscard]] int missingFolders() const;

 private:
  void requireLibraryMovable() const;
  void requireFolder() const;
  void requireApartFromAgents();
  void requireApartFromProjects();
  void requireApartFrom(const std::filesystem::path& folder, const std::string& whose) const;
  [[nodiscard]] std::filesystem::path nearestExisting() const;

  Library& library_;
  Paths to_;
};

}  // namespace orvanta
