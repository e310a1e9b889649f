#pragma once

// The changes that one operation makes in agents' and projects' folders, or of whole skills in the library, from their
// announcement to the records: what makes disk and records agree after a crash or a power cut at any moment.
//
//   FolderChanges changes(library);
//   changes.make(prepared, …);                  // announced, flushed, made, flushed
//   library.transaction([&] { …; changes.recorded(); });
//   for (auto& change : prepared) change.keep();
//
// Before the first change is made, all of them stand in the library's ChangeJournal and what they hold is on the disk.
// The transaction that writes the records also notes which operation that was. So the next start knows what a crash
// left half done: where the records do not know the journal's operation, all of it is taken back; else it is cleared
// up.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "agents/ChangeJournal.h"
#include "agents/TargetChange.h"
#include "engine/Library.h"

namespace orvanta {

class FolderChanges {
 public:
  explicit FolderChanges(Library& library) : library_(library) {}
  // The journal goes, for by now the changes are kept, or taken back: declare this before them. It stays where that
  // failed, for the next opening of the library.
  ~FolderChanges();
  FolderChanges(const FolderChanges&) = delete;
  FolderChanges& operator=(const FolderChanges&) = delete;

  using Failed = std::function<void(std::size_t index, const SkillsError& error)>;

  // Makes the prepared changes, on all cores, in folders from which it first sweeps what ended processes left, after
  // those that were made before; those that are no change are passed over. What fails is told, in the changes' order,
  // and is as it was. Throws `io` when the disk takes no journal, with nothing made, or does not say that it has what
  // was made; the caller then lets the changes go, which takes them back.
  void make(const std::vector<TargetChange*>& changes, const Failed& failed);
  // One change, or several that belong together. Throws what one of them throws; the caller then lets all of them go.
  void make(TargetChange& change);
  void makeTogether(std::vector<TargetChange>& changes);

  // Makes the `change` of each owner in the same way; `failed` is given the owner of one that fails.
  template <typename Owner, typename OwnerFailed>
  void makeEach(std::vector<Owner>& owners, OwnerFailed failed) {
    std::vector<TargetChange*> changes;
    for (auto& owner : owners) changes.push_back(&owner.change);
    make(changes, [&](std::size_t i, const SkillsError& error) { failed(owners[i], error); });
  }

  // Belongs into the transaction that writes the records of what was made.
  void recorded();

 private:
  void makeOrThrow(const std::vector<TargetChange*>& changes);
  void announce(const std::vector<TargetChange*>& changes);
  static void flush(const std::vector<TargetChange*>& changes);

  Library& library_;
  std::string id_;              // of the operation; empty until something was announced
  ChangeJournal::Notes notes_;  // all that stands in the journal
};

// Takes back, or clears up behind, what an operation that has ended left half done in agents' folders. For whoever
// holds the library's lock, before anything is looked at. What that fails for stays in the journal and is tried again.
void healFolderChanges(Library& library);

}  // namespace orvanta
