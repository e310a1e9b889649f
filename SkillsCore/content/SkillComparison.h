#pragma once

// How two contents of one skill differ, file by file, and what somebody who is about to accept the later one should
// know of it: an agent will do what a skill says and run what it brings.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "content/ContentHash.h"

namespace orvanta {

struct SkillFileChange {
  std::string path;                    // relative to the skill's folder; may hold any bytes
  std::optional<ContentEntry> before;  // none: added
  std::optional<ContentEntry> after;   // none: removed

  [[nodiscard]] bool isAdded() const { return !before; }
  [[nodiscard]] bool isRemoved() const { return !after; }
};

// The files and links that differ, by path; what does not count towards a fingerprint is left out. A folder that is not
// there is empty. Throws `io` when something cannot be read.
std::vector<SkillFileChange> compareSkills(const std::filesystem::path& before, const std::filesystem::path& after);

// One sentence for each change that is easily overlooked: a file that becomes executable, characters in a name or a
// text that nobody sees, a link. Texts larger than 16 MiB are not read.
std::vector<std::string> findingsIn(const std::vector<SkillFileChange>& changes);

}  // namespace orvanta
