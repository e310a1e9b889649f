#include "content/YamlScalars.h"

#include <algorithm>
#include <utility>

#include "content/YamlQuotes.h"
#include "foundations/Text.h"

namespace orvanta {
namespace {

enum class Comments { cut, kept };

// A plain value continues on the indented lines that follow, until a comment.
std::string readPlain(std::string_view first, FrontMatterLines& lines, Comments comments) {
  std::string text;
  std::size_t blankLines = 0;
  const auto append = [&](std::string_view line) {
    const std::size_t end = comments == Comments::cut ? commentStart(line) : line.size();
    text.append(Text::trim(line.substr(0, end)));
    return end == line.size();
  };
  for (bool continues = append(first); continues && !lines.atEnd(); lines.advance()) {
    const std::string_view line = lines.line();
    if (isBlank(line)) {
      ++blankLines;
      continue;
    }
    const bool isComment = comments == Comments::cut && withoutIndentation(line).starts_with('#');
    if (!isIndented(line) || isComment) break;
    appendFold(text, std::exchange(blankLines, 0));
    continues = append(line);
  }
  return text;
}

// Block values

struct BlockHeader {
  enum class Chomping { clip, strip, keep };

  bool isFolded = false;
  Chomping chomping = Chomping::clip;
  std::size_t indentation = 0;  // 0: that of the first line
};

// Reads "|" or ">" with its indicators: at most one digit and one sign, in either order, then a comment or nothing.
std::optional<BlockHeader> parseBlockHeader(std::string_view text) {
  BlockHeader header{.isFolded = text.front() == '>'};
  bool isChomped = false;
  std::size_t length = 1;
  for (; length < text.size() && !isBlankByte(text[length]); ++length) {
    const char indicator = text[length];
    if (indicator >= '1' && indicator <= '9' && header.indentation == 0) {
      header.indentation = static_cast<std::size_t>(indicator - '0');
    } else if ((indicator == '+' || indicator == '-') && !isChomped) {
      header.chomping = indicator == '+' ? BlockHeader::Chomping::keep : BlockHeader::Chomping::strip;
      isChomped = true;
    } else {
      return std::nullopt;
    }
  }
  const std::string_view rest = withoutIndentation(text.substr(length));
  return rest.empty() || rest.starts_with('#') ? std::optional(header) : std::nullopt;
}

// How far the lines of a block value are indented: as the first one that is not blank; by tabs when it has no spaces.
std::size_t blockIndentation(FrontMatterLines lines) {
  while (!lines.atEnd() && isBlank(lines.line())) lines.advance();
  if (lines.atEnd() || !isIndented(lines.line())) return std::string_view::npos;
  const std::string_view line = lines.line();
  return line.find_first_not_of(line.front());
}

// A comment that stands further left than a block value ends it.
bool isCommentLeftOf(std::size_t indentation, std::string_view line) {
  const std::string_view text = withoutIndentation(line);
  return text.starts_with('#') && line.size() - text.size() < indentation;
}

std::string_view withoutBlockIndentation(std::string_view line, std::size_t indentation) {
  const std::size_t blanks = line.size() - withoutIndentation(line).size();
  return line.substr(std::min(blanks, indentation));
}

std::string readBlock(const BlockHeader& header, FrontMatterLines& lines) {
  const std::size_t indentation = header.indentation > 0 ? header.indentation : blockIndentation(lines);
  std::string text;
  std::size_t blankLines = 0;
  bool hasLines = false;
  bool lastIsFlush = false;  // a line that begins with a blank of its own is never folded with its neighbours
  for (; !lines.atEnd() && (isIndented(lines.line()) || isBlank(lines.line())); lines.advance()) {
    if (isCommentLeftOf(indentation, lines.line())) break;
    const std::string_view line = withoutBlockIndentation(lines.line(), indentation);
    if (line.empty()) {
      ++blankLines;
      continue;
    }
    const bool isFlush = !isBlankByte(line.front());
    if (hasLines && header.isFolded && isFlush && lastIsFlush) {
      appendFold(text, blankLines);
    } else {
      text.append(blankLines + (hasLines ? 1 : 0), '\n');
    }
    text.append(line);
    blankLines = 0;
    lastIsFlush = isFlush;
    hasLines = true;
  }
  if (hasLines && header.chomping != BlockHeader::Chomping::strip) text.push_back('\n');
  if (header.chomping == BlockHeader::Chomping::keep) text.append(blankLines, '\n');
  return text;
}

// Flow values

// Follows the brackets of a flow value over its lines.
class FlowBrackets {
 public:
  [[nodiscard]] bool areClosed() const { return depth_ == 0; }

  // The length of the line without its comment, if there is one.
  std::size_t follow(std::string_view line) {
    char before = ' ';
    for (std::size_t at = 0; at < line.size(); before = line[at], ++at) {
      if (quote_ != 0) {
        at += skipQuoted(line.substr(at));
      } else if (line[at] == '#' && isBlankByte(before)) {
        return at;
      } else {
        open(line[at], before);
      }
      if (areClosed()) return at + 1;
    }
    return line.size();
  }

 private:
  void open(char byte, char before) {
    constexpr std::string_view beforeQuote = "[{,: \t";
    if (byte == '[' || byte == '{') ++depth_;
    if (byte == ']' || byte == '}') --depth_;
    const bool isQuote = byte == '"' || byte == '\'';
    if (isQuote && beforeQuote.find(before) != std::string_view::npos) quote_ = byte;
  }

  // One more byte is passed when it is escaped.
  std::size_t skipQuoted(std::string_view rest) {
    const bool isEscape = quote_ == '"' ? rest.front() == '\\' : rest.starts_with("''");
    if (isEscape && rest.size() > 1) return 1;
    if (rest.front() == quote_) quote_ = 0;
    return 0;
  }

  std::size_t depth_ = 0;
  char quote_ = 0;
};

bool isListItem(std::string_view text) { return text == "-" || text.starts_with("- "); }

bool isNestedKey(std::string_view text) {
  const std::size_t length = keyLength(text);
  return length > 0 && (length + 1 == text.size() || isBlankByte(text[length + 1]));
}

}  // namespace

std::string YamlScalarReader::read(std::string_view first) {
  const std::string_view text = withoutIndentation(first);
  const bool isComment = text.starts_with('#') && text.size() < first.size();
  return text.empty() || isComment ? readBelowKey() : readText(text);
}

std::string YamlScalarReader::readBelowKey() {
  const auto holdsNoText = [](std::string_view line) {
    return withoutIndentation(line).starts_with('#') || isBlank(line);
  };
  while (!lines_.atEnd() && holdsNoText(lines_.line())) lines_.advance();
  if (lines_.atEnd() || !isIndented(lines_.line())) return {};
  const std::string_view text = withoutIndentation(lines_.line());
  if (isListItem(text) || isNestedKey(text)) return {};
  lines_.advance();
  return readText(text);
}

std::string YamlScalarReader::readText(std::string_view first) {
  switch (first.front()) {
    case '|':
    case '>':
      if (const auto header = parseBlockHeader(first)) return readBlock(*header, lines_);
      break;
    case '"':
    case '\'': return readQuoted(first);
    case '[':
    case '{':
      if (auto flow = readFlow(first)) return *std::move(flow);
      break;
    default: break;
  }
  return readPlain(first, lines_, Comments::cut);
}

std::string YamlScalarReader::readQuoted(std::string_view first) {
  FrontMatterLines ahead = lines_;
  if (auto text = readClosedQuote(first, ahead)) {
    lines_ = ahead;
    return *std::move(text);
  }
  ahead = lines_;
  const std::string whole = readPlain(first, ahead, Comments::kept);
  if (whole.size() < 2 || whole.back() != whole.front()) return readPlain(first, lines_, Comments::cut);
  lines_ = ahead;
  return withoutOuterQuotes(whole);
}

// The text of a flow value with its lines joined; none when anything but a comment follows its last bracket.
std::optional<std::string> YamlScalarReader::readFlow(std::string_view first) {
  FlowBrackets brackets;
  std::size_t length = brackets.follow(first);
  std::string text(Text::trim(first.substr(0, length)));
  if (brackets.areClosed()) return isBlankOrComment(first.substr(length)) ? std::optional(text) : std::nullopt;
  FrontMatterLines ahead = lines_;
  while (!brackets.areClosed() && !flowFailed_ && !ahead.atEnd()) {
    const std::string_view line = ahead.line();
    length = brackets.follow(line);
    text.append(" ").append(Text::trim(line.substr(0, length)));
    flowFailed_ = brackets.areClosed() && !isBlankOrComment(line.substr(length));
    ahead.advance();
  }
  flowFailed_ = flowFailed_ || !brackets.areClosed();
  if (flowFailed_) return std::nullopt;
  lines_ = ahead;
  return text;
}

}  // namespace orvanta
