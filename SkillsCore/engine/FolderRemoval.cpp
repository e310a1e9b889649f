#include "engine/FolderRemoval.h"

#include <utility>

#include "engine/LibraryRecovery.h"
#include "files/FS.h"
#include "files/Paths.h"
#include "foundations/SkillsError.h"
#include "foundations/Uuid.h"

namespace orvanta {

namespace fs = std::filesystem;

void FolderRemoval::requireRemovable(const fs::path& skillsFolder, const SkillRecord& skill) {
  if (FS::resolved(standardized(skill.centralPath).parent_path()) == FS::resolved(skillsFolder)) return;
  throw SkillsError::refused("Refusing to remove " + skill.centralPath + ": it is not a folder of the library " +
                             skillsFolder.string() + "; remove the skill with its files kept");
}

FolderRemoval::FolderRemoval(const fs::path& skillsFolder, const SkillRecord& skill)
    : folder_(standardized(skill.centralPath)) {
  requireRemovable(skillsFolder, skill);
  if (!FS::exists(folder_)) return;
  const fs::path aside =
      skillsFolder / (std::string(kRemovingPrefix) + folder_.filename().string() + "-" + newUuid().substr(0, 6));
  FS::renameExclusive(folder_, aside);
  aside_ = aside;
}

FolderRemoval::FolderRemoval(FolderRemoval&& other) noexcept
    : folder_(std::move(other.folder_)), aside_(std::exchange(other.aside_, {})) {}

FolderRemoval::~FolderRemoval() {
  if (aside_.empty()) return;
  try {
    FS::renameExclusive(aside_, folder_);
  } catch (const SkillsError&) {
    return;  // the next opening of the library puts it back
  }
}

void FolderRemoval::keep() noexcept {
  const fs::path aside = std::exchange(aside_, {});
  if (!aside.empty()) FS::removeQuietly(aside);  // else removed at the next opening of the library
}

}  // namespace orvanta
