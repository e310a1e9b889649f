#pragma once

// Lists what a folder tree holds, in an order that does not depend on the file system.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta {

struct TreeEntry {
  enum class Kind { directory, file, symlink };

  std::string relativePath;  // "/"-separated, below the root
  Kind kind = Kind::file;

  friend bool operator==(const TreeEntry&, const TreeEntry&) = default;
};

// Whether an entry of this name is left out, with all it holds.
using NameFilter = bool (*)(std::string_view name);

// Everything below the open folder but what the filter leaves out, sorted by the bytes of the relative path, so that a
// folder comes before what it holds. Links are listed, never followed. Fifos, sockets and devices are not listed, and
// nothing is opened that could block. `shown` names the folder in errors. Throws `io` when a folder cannot be read.
std::vector<TreeEntry> listTree(int rootFd, const std::filesystem::path& shown, NameFilter leavesOut);

}  // namespace orvanta
