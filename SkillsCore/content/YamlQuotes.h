#pragma once

// Quoted values of a front matter, in single or double quotes, over one line or many.

#include <optional>
#include <string>
#include <string_view>

#include "content/FrontMatterLines.h"

namespace orvanta {

// Reads the quoted value that begins with `first` and goes on in `lines`, as YAML decodes it; an unknown escape is
// text. None when it is not closed before the next key or is followed by anything but a comment; `lines` stands
// anywhere then.
[[nodiscard]] std::optional<std::string> readClosedQuote(std::string_view first, FrontMatterLines& lines);

// Takes the outer quotes off a text that begins and ends with one, but whose inner quotes do not follow YAML. Inside,
// an escaped quote becomes a plain one; all else stays.
[[nodiscard]] std::string withoutOuterQuotes(std::string_view text);

}  // namespace orvanta
