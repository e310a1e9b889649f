#include "foundations/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <utility>

#include <fmt/format.h>
#include <utf8proc.h>

namespace orvanta::Text {
namespace {

constexpr char32_t replacementCharacter = 0xFFFD;
constexpr std::string_view ellipsis = "…";

bool isASCII(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

char lowercaseASCII(char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte; }

// How many ASCII bytes the text begins with, eight at a time: whole files go through here.
std::size_t leadingASCII(std::string_view text) {
  std::size_t length = 0;
  for (std::uint64_t block = 0; length + sizeof block <= text.size(); length += sizeof block) {
    std::memcpy(&block, text.data() + length, sizeof block);
    if ((block & 0x8080808080808080U) != 0) break;
  }
  while (length < text.size() && isASCII(text[length])) ++length;
  return length;
}

// Most names and descriptions: one column for each byte, nothing to repair or to leave out.
bool isPrintableASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return byte >= ' ' && byte <= '~'; });
}

bool isWhiteSpace(char32_t codePoint) {
  if (codePoint < 0x80) return codePoint == ' ' || (codePoint >= '\t' && codePoint <= '\r');
  if (codePoint == 0x85) return true;
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(codePoint));
  return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
}

Character lastCharacter(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length) {
    if (isContinuation(text[text.size() - length])) continue;
    const Character character = firstCharacter(text.substr(text.size() - length));
    if (character.valid && character.length == length) return character;
    break;
  }
  return {replacementCharacter, 1, false};
}

// The bytes of an invalid sequence: a leading byte goes with the continuation bytes that it announces, any other alone.
std::size_t invalidSequenceLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t announced = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  std::size_t length = 1;
  while (length < std::min(announced, text.size()) && isContinuation(text[length])) ++length;
  return length;
}

std::size_t sequenceLength(std::string_view text) {
  const Character character = firstCharacter(text);
  return character.valid ? character.length : invalidSequenceLength(text);
}

std::size_t widthOf(const Character& character) {
  const int width = utf8proc_charwidth(static_cast<utf8proc_int32_t>(character.codePoint));
  return static_cast<std::size_t>(std::max(width, 0));
}

std::vector<char32_t> codePoints(std::string_view text) {
  std::vector<char32_t> result;
  result.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    result.push_back(character.codePoint);
    text.remove_prefix(character.length);
  }
  return result;
}

// How much of what follows "://" stands before the "@" of its host.
std::size_t credentialsLength(std::string_view rest) {
  rest = rest.substr(0, rest.find_first_of(" \t\r\n\v\f\"'<>"));
  const auto host = rest.substr(0, rest.find_first_of("/?#"));
  // A password may hold an "@" that should have been escaped, so the last one before the path counts.
  if (const auto at = host.rfind('@'); at != std::string_view::npos) return at;
  // So may it hold a "/": in "user:pass/word@host", what looks like a port is the start of a password.
  const auto colon = host.rfind(':');
  const auto at = rest.rfind('@');
  if (colon == std::string_view::npos || at == std::string_view::npos) return 0;
  return host.find_first_not_of("0123456789", colon + 1) == std::string_view::npos ? 0 : at;
}

}  // namespace

Character firstCharacter(std::string_view text) {
  if (isASCII(text.front())) return {static_cast<char32_t>(text.front()), 1, true};
  utf8proc_int32_t codePoint = 0;
  const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &codePoint);
  if (length <= 0) return {replacementCharacter, 1, false};
  return {static_cast<char32_t>(codePoint), static_cast<std::size_t>(length), true};
}

void appendCharacter(std::string& text, char32_t codePoint) {
  const bool encodable = codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
  utf8proc_uint8_t bytes[4];
  const auto length =
      utf8proc_encode_char(static_cast<utf8proc_int32_t>(encodable ? codePoint : replacementCharacter), bytes);
  text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

bool isLetterOrDigit(char32_t codePoint) {
  switch (utf8proc_category(static_cast<utf8proc_int32_t>(codePoint))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ND: return true;
    default: return false;
  }
}

bool isControl(char32_t codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F) || codePoint == 0x2028 || codePoint == 0x2029;
}

bool isDirectionControl(char32_t codePoint) {
  return codePoint == 0x061C || codePoint == 0x200E || codePoint == 0x200F ||
         (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

bool isHidden(char32_t codePoint) {
  const auto within = [&](char32_t first, char32_t last) { return codePoint >= first && codePoint <= last; };
  return isDirectionControl(codePoint) || codePoint == 0x00AD || codePoint == 0x180E || codePoint == 0x200B ||
         codePoint == 0xFEFF || codePoint == 0x3164 || codePoint == 0xFFA0 || within(0x115F, 0x1160) ||
         within(0x2060, 0x2064) || within(0x206A, 0x206F) || within(0xE0000, 0xE0FFF);
}

bool isValidUTF8(std::string_view text) {
  text.remove_prefix(leadingASCII(text));
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (!character.valid) return false;
    text.remove_prefix(character.length);
    if (!text.empty() && isASCII(text.front())) text.remove_prefix(leadingASCII(text));
  }
  return true;
}

std::string repairUTF8(std::string_view text) {
  if (isValidUTF8(text)) return std::string(text);
  std::string repaired;
  repaired.reserve(text.size() + 16);
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    const std::size_t length = character.valid ? character.length : invalidSequenceLength(text);
    if (character.valid) {
      repaired.append(text.substr(0, length));
    } else {
      appendCharacter(repaired, replacementCharacter);
    }
    text.remove_prefix(length);
  }
  return repaired;
}

std::string_view trim(std::string_view text) {
  while (!text.empty()) {
    const Character first = firstCharacter(text);
    if (!isWhiteSpace(first.codePoint)) break;
    text.remove_prefix(first.length);
  }
  while (!text.empty()) {
    const Character last = lastCharacter(text);
    if (!isWhiteSpace(last.codePoint)) break;
    text.remove_suffix(last.length);
  }
  return text;
}

std::string lowercase(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (character.length == 1) {
      lower.push_back(lowercaseASCII(text.front()));
    } else {
      const auto mapped = utf8proc_tolower(static_cast<utf8proc_int32_t>(character.codePoint));
      appendCharacter(lower, static_cast<char32_t>(mapped));
    }
    text.remove_prefix(character.length);
  }
  return lower;
}

std::string comparisonKey(std::string_view text) {
  if (leadingASCII(text) == text.size()) return lowercase(text);
  utf8proc_uint8_t* mapped = nullptr;
  const auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                   static_cast<utf8proc_ssize_t>(text.size()), &mapped, options);
  // Bytes that are not UTF-8 have no composition; their letters still compare without case.
  if (length < 0) return lowercase(text);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(mapped, &std::free);
  return {reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length)};
}

std::string uppercaseASCII(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](char byte) { return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte; });
  return upper;
}

std::string_view prefixBytes(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  std::size_t end = bytes;
  while (end > 0 && bytes - end < 3 && isContinuation(text[end])) --end;
  const bool cutsSequence = sequenceLength(text.substr(end)) > bytes - end;
  return text.substr(0, cutsSequence ? end : bytes);
}

std::string_view prefixCharacters(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  for (; count > 0 && end < text.size(); --count) end += firstCharacter(text.substr(end)).length;
  return text.substr(0, end);
}

std::size_t displayWidth(std::string_view text) {
  if (isPrintableASCII(text)) return text.size();
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    width += widthOf(character);
    text.remove_prefix(character.length);
  }
  return width;
}

std::string fitToWidth(std::string_view text, std::size_t columns) {
  if (displayWidth(text) <= columns) return std::string(text);
  if (columns == 0) return {};
  std::size_t end = 0;
  for (std::size_t width = 0; end < text.size();) {
    const Character character = firstCharacter(text.substr(end));
    width += widthOf(character);
    if (width > columns - 1) break;
    end += character.length;
  }
  return std::string(text.substr(0, end)).append(ellipsis);
}

std::string singleLine(std::string_view text) {
  if (isPrintableASCII(text)) return std::string(text);
  std::string line;
  line.reserve(text.size());
  const std::string repaired = repairUTF8(text);
  for (std::string_view rest = repaired; !rest.empty();) {
    const Character character = firstCharacter(rest);
    if (isControl(character.codePoint)) {
      line.push_back(' ');
    } else if (!isDirectionControl(character.codePoint)) {
      line.append(rest.substr(0, character.length));
    }
    rest.remove_prefix(character.length);
  }
  return line;
}

std::string revealed(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    const char32_t codePoint = character.codePoint;
    if (codePoint != '\t' && (isControl(codePoint) || isHidden(codePoint))) {
      line += fmt::format("<U+{:04X}>", static_cast<std::uint32_t>(codePoint));
    } else {
      appendCharacter(line, codePoint);
    }
    text.remove_prefix(character.length);
  }
  return line;
}

std::string maskCredentials(std::string_view text) {
  constexpr std::string_view schemeEnd = "://";
  std::string masked;
  for (auto found = text.find(schemeEnd); found != std::string_view::npos; found = text.find(schemeEnd)) {
    masked += text.substr(0, found + schemeEnd.size());
    text.remove_prefix(found + schemeEnd.size());
    const auto length = credentialsLength(text);
    if (length == 0) continue;
    masked += "***";
    text.remove_prefix(length);
  }
  return masked.append(text);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string joined;
  for (const std::string& part : parts) {
    if (&part != &parts.front()) joined.append(separator);
    joined.append(part);
  }
  return joined;
}

std::size_t editDistance(std::string_view a, std::string_view b) {
  const std::vector<char32_t> from = codePoints(a);
  const std::vector<char32_t> to = codePoints(b);
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

}  // namespace orvanta::Text
