#include "engine/RepositoryGuard.h"

#include <algorithm>

#include "files/FS.h"
#include "files/FileReader.h"
#include "files/TreeWalk.h"
#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

void refuseRepository(const fs::path& folder, const std::string& advice) {
  if (FS::kind(folder) != FS::Kind::directory) return;
  const UniqueFd fd = openFolder(folder);
  const auto entries = listTree(fd.get(), folder, [](std::string_view) { return false; });
  const auto repository = std::find_if(entries.begin(), entries.end(), [](const TreeEntry& entry) {
    return fs::path(entry.relativePath).filename() == ".git";
  });
  if (repository == entries.end()) return;
  throw SkillsError::refused("Refusing to replace \"" + folder.string() + "\": it holds a Git repository (" +
                             repository->relativePath + ") that would be lost. " + advice);
}

}  // namespace orvanta
