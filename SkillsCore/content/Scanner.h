#pragma once

// Finds the skill folders that stand in folders the library does not own. Nothing is thrown: what cannot be read, has
// vanished or is broken is passed over.

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

// One skill folder found under a root.
struct LocalSkillDir {
  std::filesystem::path url;  // as found, links not resolved
  std::string relativePath;   // below the root, "/"-separated
  bool isSymlink = false;
  std::optional<std::filesystem::path> linkDestination;

  friend bool operator==(const LocalSkillDir&, const LocalSkillDir&) = default;
};

namespace Scanner {

// The skill folders below a root, sorted by relative path: only its direct children or, when `recursive`, down to six
// levels. Skills are not looked for inside a skill. Links to folders are followed, each real folder once.
std::vector<LocalSkillDir> listSkillDirs(const std::filesystem::path& root, bool recursive);

// The name under which a change of an agent's folder is prepared begins so; such entries are never skills.
inline constexpr std::string_view kStagePrefix = ".orvanta-stage-";

}  // namespace Scanner

namespace FS {

// Every skill folder at or below `root`, at most `maxDepth` levels down, also inside other skills, each real folder
// once. Folders with a name in `skipNames` are not entered. Nothing outside `boundary` is looked at, links resolved: in
// a folder that a stranger filled, a link must not lead the search over the whole disk.
std::vector<std::filesystem::path> findSkillDirs(const std::filesystem::path& root, int maxDepth,
                                                 const std::set<std::string>& skipNames,
                                                 const std::filesystem::path& boundary = "/");

// The skills in a folder that is to hold one: the folder itself where it is a skill, whatever lies below it; else all
// skill folders below it.
std::vector<std::filesystem::path> skillsIn(const std::filesystem::path& folder);

// Whether `path` is `boundary` or lies below it once the links in both are resolved.
[[nodiscard]] bool resolvesInside(const std::filesystem::path& path, const std::filesystem::path& boundary);

// Whether `folder` is a skill folder that, with its marker file, resolves to a place inside `boundary`.
[[nodiscard]] bool isSkillDirInside(const std::filesystem::path& folder, const std::filesystem::path& boundary);

}  // namespace FS
}  // namespace orvanta
