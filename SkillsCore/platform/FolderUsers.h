#pragma once

// Who else is at work in a folder, as far as the system tells.

#include <filesystem>
#include <optional>
#include <string_view>

namespace orvanta {

// Whether another process has a file below `files` open, or is the program `program` (or one of its parts, "PROGRAM-…")
// with its working folder at or below `folder`. None where the system does not tell, as of programs of that name that
// other users run.
[[nodiscard]] std::optional<bool> isFolderInUse(const std::filesystem::path& folder, const std::filesystem::path& files,
                                                std::string_view program);

}  // namespace orvanta
