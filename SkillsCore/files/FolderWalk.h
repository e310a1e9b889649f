#pragma once

// Goes through large folder trees on all cores: a whole home, say. Only names are read; files are never asked about.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "foundations/Operation.h"

namespace orvanta {

// One folder as it was just read.
struct WalkedFolder {
  std::string path;
  std::vector<std::string> folders;  // the names of the folders in it
  std::vector<std::string> links;    // the names of the links in it, wherever they lead
};

// Calls `visit` for `root` and every folder below it down to `maxDepth` levels: a folder before those in it, beyond
// that in any order, several at once. `visit` takes the names of what is not to be entered out of `folders`.
//
// Links are not followed. What cannot be read is passed over, as are folders whose path is too long for the system.
// Stops on request between two folders. Reports "Scanning" and how many folders were seen, of an unknown total.
void walkFolders(const std::filesystem::path& root, int maxDepth, const OperationContext& context,
                 const std::function<void(WalkedFolder&)>& visit);

}  // namespace orvanta
