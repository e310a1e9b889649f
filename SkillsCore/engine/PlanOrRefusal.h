#pragma once

// Plans of operations on the one skill at a path, whose checks throw what refuses it.

#include <filesystem>

#include "engine/Reports.h"
#include "foundations/SkillsError.h"

namespace orvanta {

// What `check` plans; when it throws, one step that is refused for that reason.
template <typename Check>
Plan planOrRefusal(const std::filesystem::path& path, Check check) {
  try {
    return check();
  } catch (const SkillsError& error) {
    return {{.action = PlannedStep::Action::refused,
             .skillName = path.filename().string(),
             .skillId = {},
             .tool = {},
             .path = path.string(),
             .reason = error.message()}};
  }
}

}  // namespace orvanta
