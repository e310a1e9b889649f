#pragma once

// Brings whole folder trees to another file system, so that the original may go afterwards.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace orvanta {

// What a tree takes, and a text that differs as soon as something in it is written, added or removed.
struct TreeMeasure {
  std::int64_t bytes = 0;  // on a disk that gives out blocks of four kibibytes
  std::size_t files = 0;
  std::string stamp;
};

// Reads names and what the system says of each file, never the files. Throws `io`.
TreeMeasure measureTree(const std::filesystem::path& root);

// Copies the tree `from` to `to`, which must not exist yet, as `FS::copyWholeTree` does, waits until it is on the disk,
// reads the copy again and compares. `each` is told of every file before it is copied, and again before the copy is
// read; what it throws ends the work. Throws `io`, also when the copy differs; what was copied by then stays.
void copyAndCompare(const std::filesystem::path& from, const std::filesystem::path& to,
                    const std::function<void()>& each);

// Whether two trees hold the same, read in full. Throws `io`.
bool isSameTree(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace orvanta
