#include "content/FrontMatter.h"

#include "foundations/Text.h"

namespace orvanta {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view fence = "---";

std::string_view withoutByteOrderMark(std::string_view text) {
  return text.starts_with(byteOrderMark) ? text.substr(byteOrderMark.size()) : text;
}

// What follows the opening dashes; empty without them.
std::string_view frontMatterBody(std::string_view text) {
  const std::string_view trimmed = Text::trim(withoutByteOrderMark(text));
  return trimmed.starts_with(fence) ? trimmed.substr(fence.size()) : std::string_view();
}

}  // namespace

FrontMatterReader::FrontMatterReader(std::string_view text) : lines_(frontMatterBody(text)), scalars_(lines_) {}

std::optional<FrontMatterEntry> FrontMatterReader::next() {
  while (!lines_.atEnd()) {
    const std::string_view line = lines_.line();
    lines_.advance();
    if (const std::size_t length = keyLength(line)) {
      return FrontMatterEntry{line.substr(0, length), scalars_.read(line.substr(length + 1))};
    }
  }
  return std::nullopt;
}

bool holdsWholeFrontMatter(std::string_view beginning) {
  // Untrimmed at its end: the line break after the closing dashes tells that the line is complete.
  const std::string_view trimmed = Text::trim(withoutByteOrderMark(beginning));
  if (trimmed.size() < fence.size()) return false;
  if (!trimmed.starts_with(fence)) return true;
  const auto start = static_cast<std::size_t>(trimmed.data() - beginning.data()) + fence.size();
  FrontMatterLines lines(beginning.substr(start));
  while (!lines.atEnd()) lines.advance();
  return lines.isClosed();
}

}  // namespace orvanta
