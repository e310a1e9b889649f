#include "engine/IncomingBackup.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "agents/StagingNames.h"
#include "engine/LibraryRecovery.h"
#include "foundations/Text.h"

namespace orvanta {

namespace {

using Item = GitBackup::Item;

bool isFile(const Item& item) { return item.mode == "100644" || item.mode == "100755"; }

// Ours are the folder of the manifest, the ignore file, and what waits under a name of its own. A link in place of one
// of them would have us write wherever it leads.
bool takesOurPlace(const Item& item) {
  const std::string_view path = item.path;
  const auto top = path.substr(0, path.find('/'));
  if (isSetAside(top) || isStageName(top) || top == ".orvanta.lock") return true;
  if (path == ".gitignore" || path == ".gitattributes" || path == BackupManifest::kPath) return !isFile(item);
  return path == BackupManifest::kFolder || path.starts_with(std::string(BackupManifest::kPath) + "/");
}

bool isTooLong(const Item& item) {
  constexpr std::size_t longestName = 255;
  constexpr std::size_t longestPath = 3000;
  const auto names = Text::split(item.path, '/');
  return item.path.size() > longestPath ||
         std::any_of(names.begin(), names.end(), [](std::string_view name) { return name.size() > longestName; });
}

bool isSkillFile(const Item& item) {
  const auto slash = item.path.find('/');
  return slash != std::string::npos && Text::lowercase(item.path.substr(slash + 1)) == "skill.md";
}

}  // namespace

void judgeIncoming(const GitBackup& backup, const std::string& commit, bool mustBeBackup,
                   const OperationContext& context) {
  const auto items = backup.tree(commit, context);
  const auto ours = std::find_if(items.begin(), items.end(), takesOurPlace);
  if (ours != items.end()) {
    throw SkillsError::refused(
        fmt::format("The snapshot holds '{}', which is in the way of Orvanta's own files. Nothing was brought into the "
                    "library; remove it from the remote with git.",
                    Text::singleLine(ours->path)));
  }
  const auto reference =
      std::find_if(items.begin(), items.end(), [](const Item& item) { return item.mode == "160000"; });
  if (reference != items.end()) {
    throw SkillsError::refused(
        fmt::format("The snapshot holds no files of '{}', only a reference to another repository. "
                    "Nothing was brought into the library; put the files there with git.",
                    Text::singleLine(reference->path)));
  }
  if (std::any_of(items.begin(), items.end(), isTooLong)) {
    throw SkillsError::refused(
        "The snapshot holds names that are too long for this computer. Nothing was brought into the library; shorten "
        "them with git.");
  }
  const bool hasManifest =
      std::any_of(items.begin(), items.end(), [](const Item& item) { return item.path == BackupManifest::kPath; });
  const auto manifest = hasManifest ? backup.manifestIn(commit, context) : std::nullopt;
  if (manifest && manifest->isOfLaterFormat()) {
    throw SkillsError::refused(
        fmt::format("The snapshot was made by a later version of Orvanta (format {}). Update Orvanta, then try again; "
                    "nothing was brought into the library.",
                    manifest->version));
  }
  if (!mustBeBackup || hasManifest || std::any_of(items.begin(), items.end(), isSkillFile)) return;
  throw SkillsError::refused(
      "What the remote holds is no backup of a library: it has neither a manifest nor a skill. Nothing was brought "
      "into "
      "the library.");
}

}  // namespace orvanta
