#include "content/YamlQuotes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "foundations/Text.h"

namespace orvanta {
namespace {

std::optional<char32_t> hexadecimal(std::string_view text, std::size_t digits) {
  std::uint32_t value = 0;
  const char* const end = text.data() + std::min(digits, text.size());
  const auto parsed = std::from_chars(text.data(), end, value, 16);
  if (text.size() < digits || parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return static_cast<char32_t>(value);
}

std::optional<char32_t> namedEscape(char name) {
  constexpr std::array<std::pair<char, char32_t>, 18> escapes = {{{'0', 0x00},
                                                                  {'a', 0x07},
                                                                  {'b', 0x08},
                                                                  {'t', '\t'},
                                                                  {'\t', '\t'},
                                                                  {'n', '\n'},
                                                                  {'v', 0x0B},
                                                                  {'f', 0x0C},
                                                                  {'r', '\r'},
                                                                  {'e', 0x1B},
                                                                  {' ', ' '},
                                                                  {'"', '"'},
                                                                  {'/', '/'},
                                                                  {'\\', '\\'},
                                                                  {'N', 0x85},
                                                                  {'_', 0xA0},
                                                                  {'L', 0x2028},
                                                                  {'P', 0x2029}}};
  const auto* const found = std::find_if(escapes.begin(), escapes.end(), [&](auto& e) { return e.first == name; });
  return found == escapes.end() ? std::nullopt : std::optional(found->second);
}

// JSON writers put a character beyond U+FFFF as two escapes, "\uD83D\uDE00".
std::optional<char32_t> surrogatePair(char32_t high, std::string_view rest) {
  if (high < 0xD800 || high > 0xDBFF || !rest.starts_with("\\u")) return std::nullopt;
  const auto low = hexadecimal(rest.substr(2), 4);
  if (!low || *low < 0xDC00 || *low > 0xDFFF) return std::nullopt;
  return 0x10000 + ((high - 0xD800) << 10) + (*low - 0xDC00);
}

// Adds what the escape after a backslash means and returns its length; an unknown one leaves the backslash as text.
std::size_t appendEscape(std::string_view rest, std::string& text) {
  if (const auto named = namedEscape(rest.front())) {
    Text::appendCharacter(text, *named);
    return 1;
  }
  const char kind = rest.front();
  const std::size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : kind == 'U' ? 8 : 0;
  const auto codePoint = digits > 0 ? hexadecimal(rest.substr(1), digits) : std::nullopt;
  if (!codePoint) {
    text.push_back('\\');
    return 0;
  }
  const auto pair = digits == 4 ? surrogatePair(*codePoint, rest.substr(5)) : std::nullopt;
  Text::appendCharacter(text, pair.value_or(*codePoint));
  return 1 + digits + (pair ? 6 : 0);
}

// Decodes a quoted value line by line.
class QuotedText {
 public:
  explicit QuotedText(char quote) : quote_(quote) {}

  // Adds a line up to the closing quote or, without the blanks before it, up to the line break.
  // Returns what follows the closing quote, none when the line has none.
  std::optional<std::string_view> add(std::string_view line) {
    std::size_t end = text_.size();
    breakIsEscaped_ = false;
    while (!line.empty()) {
      const char byte = line.front();
      line.remove_prefix(1);
      if (byte == quote_ && !(quote_ == '\'' && line.starts_with(quote_))) return line;
      if (byte == '\\' && quote_ == '"') {
        breakIsEscaped_ = line.empty();
        if (!breakIsEscaped_) line.remove_prefix(appendEscape(line, text_));
      } else {
        text_.push_back(byte);
        if (byte == quote_) line.remove_prefix(1);
        if (isBlankByte(byte)) continue;
      }
      end = text_.size();
    }
    text_.resize(end);
    return std::nullopt;
  }

  void addBreak(std::size_t blankLines) {
    if (blankLines > 0 || !breakIsEscaped_) appendFold(text_, blankLines);
  }

  [[nodiscard]] std::string take() { return std::move(text_); }

 private:
  const char quote_;
  std::string text_;
  bool breakIsEscaped_ = false;
};

}  // namespace

std::optional<std::string> readClosedQuote(std::string_view first, FrontMatterLines& lines) {
  QuotedText text(first.front());
  auto afterQuote = text.add(first.substr(1));
  while (!afterQuote) {
    std::size_t blankLines = 0;
    for (; !lines.atEnd() && isBlank(lines.line()); lines.advance()) ++blankLines;
    if (lines.atEnd() || keyLength(lines.line()) > 0) return std::nullopt;
    text.addBreak(blankLines);
    afterQuote = text.add(withoutIndentation(lines.line()));
    lines.advance();
  }
  if (!isBlankOrComment(*afterQuote)) return std::nullopt;
  return text.take();
}

std::string withoutOuterQuotes(std::string_view text) {
  const char quote = text.front();
  const char escape = quote == '"' ? '\\' : '\'';
  std::string inner;
  for (text = text.substr(1, text.size() - 2); !text.empty(); text.remove_prefix(1)) {
    if (text.front() == escape && text.size() > 1 && text[1] == quote) text.remove_prefix(1);
    inner.push_back(text.front());
  }
  return inner;
}

}  // namespace orvanta
