#pragma once

// What differs between two snapshots of the backup, made complete by git in a folder of its own, so that each skill
// then changes in one step and nobody meets a part of it.

#include <filesystem>
#include <string>
#include <vector>

#include "agents/TargetChange.h"
#include "files/FS.h"
#include "foundations/Operation.h"
#include "sources/GitBackup.h"
#include "sources/StagingFolder.h"

namespace orvanta {

class StagedSnapshot {
 public:
  // Of the repository whose files, history and index are at the snapshot `from`. What a skill holds beside the files
  // of the snapshot is taken along. Changes none of the repository's files. Throws `conflict` for what was edited since
  // the snapshot, `git` and `io`.
  StagedSnapshot(const GitBackup& backup, const std::string& from, const std::string& to,
                 const OperationContext& context);

  // What puts it in the place of the repository's files: a change for each skill, and each file beside the skills, that
  // differs. Uses up what was staged. Throws `io`.
  std::vector<TargetChange> changes();

  // Throws `conflict` when what these changes, which were made, have replaced is no longer what was staged from.
  void requireUntouched(const std::vector<TargetChange>& changes) const;

 private:
  struct Item {
    std::string name;  // in the repository's folder
    FS::Kind kind = FS::Kind::absent;
    std::string stamp;  // of what stands there
  };

  [[nodiscard]] TargetChange changeOf(const Item& item) const;
  [[nodiscard]] std::filesystem::path staged(const Item& item) const { return staging_.slot(0) / item.name; }

  std::filesystem::path root_;
  StagingFolder staging_;
  std::vector<Item> items_;
};

}  // namespace orvanta
