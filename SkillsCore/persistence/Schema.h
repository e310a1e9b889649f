#pragma once

// The tables of the library database and the steps that bring an older database up to date.

#include <filesystem>

#include "persistence/SQLite.h"

namespace orvanta::Schema {

inline constexpr int kLatestVersion = 8;

// Throws `database` when the file is a database that a newer version of the application made. Looks at the file's
// header alone: opening such a database could already change it. The file must be a regular one.
void refuseNewer(const std::filesystem::path& database);

// Brings the database to the latest version, one committed step at a time, so that a later start resumes at a step that
// failed. Throws `database`, for a newer database before any write.
void migrate(SQLiteConnection& connection);

}  // namespace orvanta::Schema
