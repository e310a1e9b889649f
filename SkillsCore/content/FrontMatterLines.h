#pragma once

// The lines of a front matter, one after the other, up to the line that closes it. LF, CR and CRLF all end a line.

#include <cstddef>
#include <string>
#include <string_view>

namespace orvanta {

// Copied freely: a copy looks ahead without moving the original. Keeps a view of the text, which must outlive it.
class FrontMatterLines {
 public:
  // The text after the three dashes that open the front matter.
  explicit FrontMatterLines(std::string_view text);

  // Whether there is no line left: the closing line was reached, or the text has ended without one.
  [[nodiscard]] bool atEnd() const { return atEnd_; }

  // Whether the end was reached by a closing line that has its own line break, so that no more text can change it.
  [[nodiscard]] bool isClosed() const { return isClosed_; }

  // The line without its line break; only while not at the end.
  [[nodiscard]] std::string_view line() const { return line_; }

  void advance();

 private:
  std::string_view line_;
  std::string_view rest_;
  bool lineIsBroken_ = true;  // the line ends in a line break, not with the text
  bool atEnd_ = false;
  bool isClosed_ = false;
};

// Only spaces and tabs, or nothing.
[[nodiscard]] bool isBlank(std::string_view line);

[[nodiscard]] bool isBlankByte(char byte);

// Begins with a space or a tab.
[[nodiscard]] bool isIndented(std::string_view line);

// The text from its first character that is neither space nor tab.
[[nodiscard]] std::string_view withoutIndentation(std::string_view line);

// The length of the key that a line "KEY: value" begins with: letters, digits, "_" and "-" up to the colon. None is 0.
[[nodiscard]] std::size_t keyLength(std::string_view line);

// Where a comment starts: at a "#" after a blank. The length of the line when there is none.
[[nodiscard]] std::size_t commentStart(std::string_view line);

// Whether nothing but a comment stands in what follows a value on its line.
[[nodiscard]] bool isBlankOrComment(std::string_view rest);

// Prepares a folded text for its next line: a line break becomes a space, blank lines become line breaks.
void appendFold(std::string& text, std::size_t blankLines);

}  // namespace orvanta
