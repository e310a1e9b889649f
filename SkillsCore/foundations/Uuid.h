#pragma once

// Random identifiers: records, staging folders and temporary folders are named by them.

#include <string>
#include <string_view>

namespace orvanta {

// A fresh random (version 4) UUID in lower case, 36 characters.
std::string newUuid();

// Whether the text is written as `newUuid` writes one.
bool isUuid(std::string_view text);

}  // namespace orvanta
