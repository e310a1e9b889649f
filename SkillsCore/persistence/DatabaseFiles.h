#pragma once

// How SQLite opens its files.

#include <string>

namespace orvanta {

// The name of the file layer to open databases with: the system's own, but for a log that is there already, which
// SQLite takes for new in every process and therefore flushes the folder's names as well with the first commit.
const char* databaseFileLayer();

// The system's error that keeps the database or a file that belongs to it from being opened for writing; 0 for none.
int whyNotWritable(const std::string& database);

}  // namespace orvanta
