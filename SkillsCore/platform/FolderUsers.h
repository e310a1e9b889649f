#pragma once

// Who else is at work in a folder, as far as the system tells.

#include <filesystem>
#include <optional>
#include <string_view>

namespace orvanta {

// Whether another process has a file at or below the folder open, or is the program `program` (or one of its parts,
// "PROGRAM-…") with its working folder there. Processes of others that cannot be looked into count when they are that
// program. None where the system does not tell.
[[nodiscard]] std::optional<bool> isFolderInUse(const std::filesystem::path& folder, std::string_view program);

}  // namespace orvanta
