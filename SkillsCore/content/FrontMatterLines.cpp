#include "content/FrontMatterLines.h"

#include <algorithm>

#include "foundations/Text.h"

namespace orvanta {
namespace {

constexpr std::string_view blanks = " \t";

bool isClosingLine(std::string_view line) { return line.starts_with("---") && isBlank(line.substr(3)); }

}  // namespace

FrontMatterLines::FrontMatterLines(std::string_view text) : rest_(text) { advance(); }

void FrontMatterLines::advance() {
  if (atEnd_) return;
  if (!lineIsBroken_) {
    atEnd_ = true;
    return;
  }
  const std::size_t end = std::min(rest_.find_first_of("\r\n"), rest_.size());
  line_ = rest_.substr(0, end);
  lineIsBroken_ = end < rest_.size();
  rest_.remove_prefix(rest_.substr(end).starts_with("\r\n") ? end + 2 : end + (lineIsBroken_ ? 1 : 0));
  atEnd_ = isClosingLine(line_);
  isClosed_ = atEnd_ && lineIsBroken_;
}

bool isBlank(std::string_view line) { return line.find_first_not_of(blanks) == std::string_view::npos; }

bool isBlankByte(char byte) { return byte == ' ' || byte == '\t'; }

bool isIndented(std::string_view line) { return !line.empty() && isBlankByte(line.front()); }

std::string_view withoutIndentation(std::string_view line) {
  return line.substr(std::min(line.find_first_not_of(blanks), line.size()));
}

std::size_t keyLength(std::string_view line) {
  std::size_t length = 0;
  while (length < line.size() && line[length] != ':') {
    const Text::Character character = Text::firstCharacter(line.substr(length));
    const bool belongs =
        character.codePoint == '_' || character.codePoint == '-' || Text::isLetterOrDigit(character.codePoint);
    if (!belongs) return 0;
    length += character.length;
  }
  return length < line.size() ? length : 0;
}

std::size_t commentStart(std::string_view line) {
  for (std::size_t at = line.find('#'); at != std::string_view::npos; at = line.find('#', at + 1)) {
    if (at > 0 && isBlankByte(line[at - 1])) return at;
  }
  return line.size();
}

bool isBlankOrComment(std::string_view rest) { return isBlank(rest.substr(0, commentStart(rest))); }

void appendFold(std::string& text, std::size_t blankLines) {
  if (blankLines == 0) {
    text.push_back(' ');
  } else {
    text.append(blankLines, '\n');
  }
}

}  // namespace orvanta
