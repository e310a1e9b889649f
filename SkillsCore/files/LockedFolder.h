#pragma once

// A new folder that its maker keeps locked while it works in it. The system drops the lock when the process ends,
// however it ends, so what a killed one left can be told from work in progress.

#include <filesystem>
#include <optional>

#include "platform/UniqueFd.h"

namespace orvanta {

// Makes the folder, for this user alone; the lock holds as long as the descriptor is open. Throws `io`.
UniqueFd makeLockedFolder(const std::filesystem::path& folder);

// The lock of a folder that is to be removed, with which nobody comes to work in it meanwhile; nothing while a living
// process holds it, or where no folder is.
std::optional<UniqueFd> lockOfAbandoned(const std::filesystem::path& folder);

// Whether a living process holds the lock of a folder; one that cannot be asked counts as locked.
bool isFolderLocked(const std::filesystem::path& folder);

}  // namespace orvanta
