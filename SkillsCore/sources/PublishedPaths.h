#pragma once

// The paths under which a publisher lists the files of a skill, before any of them is fetched: each becomes a file
// below a folder of ours, on whatever file system that is.

#include <optional>
#include <string>
#include <vector>

namespace orvanta {

// What is wrong with the first of the paths that must not become a file, as a sentence without a full stop; nothing
// when all are good: relative, "/"-separated UTF-8 without "." or "..", without names that mean something to Git or are
// impossible elsewhere, and no two that meet where letter case and Unicode composition do not count.
[[nodiscard]] std::optional<std::string> flawOfPublishedPaths(const std::vector<std::string>& paths);

}  // namespace orvanta
