#pragma once

// How SQLite opens its files.

#include <optional>
#include <string>

namespace orvanta {

// The name of the file layer to open databases with: the system's own, but for a log that is there already, which
// SQLite takes for new in every process and therefore flushes the folder's names as well with the first commit.
const char* databaseFileLayer();

// Why the database or a file that belongs to it cannot be opened for writing, in the system's words.
std::optional<std::string> whyNotWritable(const std::string& database);

}  // namespace orvanta
