#pragma once

// JSON that strangers wrote: read only when it can harm neither the stack nor the memory.

#include <string_view>

#include "foundations/ModelsJSON.h"

namespace orvanta {

// Discarded when the text is no JSON, is nested deeper than 64 levels, or holds more than two million values, which
// take far more memory than their text. What is not UTF-8 in it is repaired.
Json parseForeignJSON(std::string_view text);

}  // namespace orvanta
