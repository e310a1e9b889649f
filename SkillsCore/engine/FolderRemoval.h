#pragma once

// Removing a skill's folder from the library so that it comes back if the record cannot be deleted: it waits under
// another name until the removal is kept. After a kill in between, the next opening of the library decides by the
// record.

#include <filesystem>

#include "foundations/Models.h"

namespace orvanta {

class FolderRemoval {
 public:
  // Throws `refused` for a record that names no folder of the library.
  static void requireRemovable(const std::filesystem::path& skillsFolder, const SkillRecord& skill);

  // Sets the skill's folder in `skillsFolder` aside; a folder that is gone already is no failure. Throws `refused` as
  // above, or `io`.
  FolderRemoval(const std::filesystem::path& skillsFolder, const SkillRecord& skill);
  FolderRemoval(FolderRemoval&& other) noexcept;
  FolderRemoval& operator=(FolderRemoval&&) = delete;
  FolderRemoval(const FolderRemoval&) = delete;
  FolderRemoval& operator=(const FolderRemoval&) = delete;
  // Puts the folder back unless the removal was kept.
  ~FolderRemoval();

  void keep() noexcept;

 private:
  std::filesystem::path folder_;
  std::filesystem::path aside_;  // empty when there is nothing to put back
};

}  // namespace orvanta
