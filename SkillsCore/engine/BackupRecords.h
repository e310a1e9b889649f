#pragma once

// What the records say about the library's backup: the manifest that travels with the files, the skills on which two
// libraries differ, and what a killed process had begun.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/FolderChanges.h"
#include "engine/Library.h"
#include "sources/BackupManifest.h"

namespace orvanta {

class BackupRecords {
 public:
  // The files go over from one snapshot to another. Until that is settled, a later start lets history and records
  // follow.
  struct Change {
    std::optional<std::string> from;  // the snapshot before, if there was one
    std::string to;
  };

  explicit BackupRecords(Library& library) : library_(library) {}

  // Of all skills, by folder.
  BackupManifest manifest();

  void begin(const Change& change);
  // The same, by changes that were made, which are recorded with it.
  void begin(const Change& change, FolderChanges& made);
  void settle();
  std::optional<Change> unsettled();

  // The snapshot with which the records were last brought in line.
  std::optional<std::string> reconciledCommit();
  void setReconciledCommit(const std::string& commit);

  // Notes that the skills in which these files lie differ, and returns their names.
  std::vector<std::string> noteConflicts(const std::set<std::string>& paths, const std::string& theirCommit);
  void clearConflicts() { library_.store.setPendingConflicts({}); }
  // The snapshot of the other side, while there are conflicts with it.
  std::optional<std::string> conflictingCommit();
  std::vector<std::string> conflictNames();

 private:
  Library& library_;
};

}  // namespace orvanta
