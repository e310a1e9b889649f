#pragma once

// Moves the library to another folder: all of it or nothing, whatever happens in between. On one file system the
// folders are renamed; to another they are copied, compared, and removed at the end. Up to one moment everything can be
// taken back, from then on everything is finished; MoveJournal says which, so that a later start can do either.
//
// The skills folder and the link that stands in for it change places in one step, and copies are complete before
// any link leads to them: a deployed skill can be read at every moment.

#include <filesystem>
#include <optional>
#include <string>

#include "engine/Library.h"
#include "engine/LibraryMove.h"
#include "engine/Reports.h"
#include "files/LibraryLock.h"
#include "foundations/Operation.h"

namespace orvanta {

class Relocation {
 public:
  // The library, whose lock the caller holds.
  explicit Relocation(Library& library) : library_(library) {}

  // Afterwards `library` has its paths and store at the new place. Throws `invalidInput`, `conflict` or `io` with
  // everything as it was, and `refused` after a requested stop.
  RelocationReport move(const std::filesystem::path& destination, const OperationContext& context);
  Plan plan(const std::filesystem::path& destination);

 private:
  SkillStore carry(LibraryMove& move, LibraryMove::Stage& stage, std::optional<LibraryLock>& lock,
                   const OperationContext& context);
  void takeNewPlace(LibraryMove& move, LibraryMove::Stage& stage, std::optional<LibraryLock>& lock);
  SkillStore storeAtNewPlace(const LibraryMove& move);

  Library& library_;
};

}  // namespace orvanta
