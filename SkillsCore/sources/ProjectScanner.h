#pragma once

// Skills in project folders: finds the projects that have any, and tells how a project's skill compares with the
// library's of the same name.

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agents/ToolAdapters.h"
#include "foundations/Models.h"
#include "foundations/Operation.h"

namespace orvanta {

// What two copies of a skill are compared by. Either is absent when it cannot be found out.
struct SkillState {
  std::optional<std::string> contentHash;
  std::optional<std::int64_t> modifiedMs;  // of the file that changed last

  friend bool operator==(const SkillState&, const SkillState&) = default;
};

namespace ProjectScanner {

// Disabled skills lie beside their skills folder, in one that has this after its name.
inline constexpr std::string_view disabledSuffix = "-disabled";

// Folders that a scan never enters: they are large, and their projects are not the user's.
inline constexpr std::array<std::string_view, 7> scanSkip = {"node_modules", "target",       "__pycache__", ".git",
                                                             "Library",      "Applications", ".Trash"};

// How a project's skill compares with the library's of the same name, if there is one. Equal content is in sync; else
// the side that changed more than a second after the other is the newer one.
[[nodiscard]] ProjectSyncStatus classifySyncStatus(const std::optional<std::string>& projectHash,
                                                   const std::optional<std::int64_t>& projectModified,
                                                   const std::optional<SkillState>& center);

// What a scan knows of the machine. Links in all of these paths are resolved.
struct ScanScope {
  std::set<std::filesystem::path> known;     // the projects that are registered
  std::set<std::filesystem::path> excluded;  // no project's: not entered, and skills in them are nobody's
};

// The folders at and at most `maxDepth` levels below `root` in which an agent has skills, sorted by path; a folder that
// several agents share counts for the first of `adapters`. Paths begin with `root` as it is given.
//
// No link is followed but those of the agents' folders, and these only within `root`. What lies among the skills of a
// project is no project. What cannot be read is passed over. On a request to stop, what was found by then is returned.
// Throws `notFound` when nothing is at `root`, `invalidInput` when it is no folder, and `io` when it cannot be read.
[[nodiscard]] std::vector<ScannedProject> scanProjects(const std::filesystem::path& root, int maxDepth,
                                                       const std::vector<ToolAdapter>& adapters, const ScanScope& scope,
                                                       const OperationContext& context);

}  // namespace ProjectScanner
}  // namespace orvanta
