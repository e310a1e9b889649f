#pragma once

// Random identifiers: records, staging folders and temporary folders are named by them.

#include <string>

namespace orvanta {

// A fresh random (version 4) UUID in lower case, 36 characters.
std::string newUuid();

}  // namespace orvanta
