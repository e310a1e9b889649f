#pragma once

// Figures, times and places as people read them.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/Host.h"

namespace orvanta::cli {

// "1 skill", "12 skills".
std::string counted(std::size_t count, std::string_view noun);

// "'NAME'", safe to show: names come from strangers.
std::string inQuotes(std::string_view name);

// "12,345".
std::string withSeparators(std::int64_t number);

// "512 B", "3.4 MB".
std::string byteCount(std::int64_t bytes);

// "2026-01-31 12:00" in the user's time zone.
std::string localTime(std::int64_t millis);

// The path as text, with the home folder as "~".
std::string shortPath(const std::filesystem::path& path, const UserFolders& user);

// The text in lines of at most `columns`, each indented; words are not cut.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t columns);

}  // namespace orvanta::cli
