#pragma once

// Unicode text as the whole system treats it: UTF-8 in, UTF-8 out. Names, tags and front matter come from strangers,
// so every function accepts any bytes; where a result must be shown or stored as text, `repairUTF8` makes it so.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::Text {

// One character of a text: its code point and the bytes it takes. A byte that belongs to no valid sequence stands
// alone, with `valid` false and U+FFFD as code point.
struct Character {
  char32_t codePoint;
  std::size_t length;
  bool valid;
};

// The first character of a text that is not empty.
[[nodiscard]] Character firstCharacter(std::string_view text);

// Adds the UTF-8 form of a code point; one that is none (a surrogate, above U+10FFFF) is added as U+FFFD.
void appendCharacter(std::string& text, char32_t codePoint);

// A letter (with the marks that belong to it in many scripts) or a decimal digit of any script.
[[nodiscard]] bool isLetterOrDigit(char32_t codePoint);

// A character that would move the cursor or start an escape sequence: C0, DEL, C1, line and paragraph separators.
[[nodiscard]] bool isControl(char32_t codePoint);

// A character that changes the direction in which its neighbours are shown, and so can disguise a name.
[[nodiscard]] bool isDirectionControl(char32_t codePoint);

// A character that nobody sees but a program reads: of no width, or one that changes the direction of its neighbours.
[[nodiscard]] bool isHidden(char32_t codePoint);

[[nodiscard]] bool isValidUTF8(std::string_view text);

// The text with every invalid sequence replaced by U+FFFD; valid text is returned as it is.
[[nodiscard]] std::string repairUTF8(std::string_view text);

// The text without Unicode white space and line breaks at either end.
[[nodiscard]] std::string_view trim(std::string_view text);

// Lower case and case folding by Unicode's simple mappings; bytes that are not UTF-8 pass unchanged.
[[nodiscard]] std::string lowercase(std::string_view text);

// A form in which two names that a person would call the same compare equal: letter case and Unicode composition
// ignored.
[[nodiscard]] std::string comparisonKey(std::string_view text);

[[nodiscard]] std::string uppercaseASCII(std::string_view text);

// The longest prefix of at most `bytes` bytes that does not cut a UTF-8 sequence.
[[nodiscard]] std::string_view prefixBytes(std::string_view text, std::size_t bytes);

// The first `count` characters (code points).
[[nodiscard]] std::string_view prefixCharacters(std::string_view text, std::size_t count);

// Columns the text takes on a terminal: wide characters count two, combining ones none.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

// The text cut to at most `columns` columns, the last being "…" where something was cut.
[[nodiscard]] std::string fitToWidth(std::string_view text, std::size_t columns);

// The text made safe for one line of a terminal: control characters (line breaks, escapes) become spaces,
// direction overrides disappear, invalid UTF-8 is repaired.
[[nodiscard]] std::string singleLine(std::string_view text);

// The text made safe for one line of a terminal with nothing left out: tabs stay, other control characters and hidden
// ones are shown by their numbers ("<U+202E>"), invalid UTF-8 is repaired.
[[nodiscard]] std::string revealed(std::string_view text);

// The text with the user names and passwords of the web addresses in it hidden: "https://***@host/path". Whatever may
// hold an address goes through here before it is shown, logged or thrown.
[[nodiscard]] std::string maskCredentials(std::string_view text);

// The parts between separators, empty ones included.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text, char separator);

[[nodiscard]] std::string join(const std::vector<std::string>& parts, std::string_view separator);

// How many single-character edits (insert, delete, replace) turn one text into the other; used to suggest names.
[[nodiscard]] std::size_t editDistance(std::string_view a, std::string_view b);

}  // namespace orvanta::Text
