#pragma once

// The streams of a run, and what is known about the terminals behind them. Handed in, so that a test sees everything
// that a run writes.

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

namespace orvanta::cli {

struct Streams {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
  bool inIsTerminal = false;
  bool outIsTerminal = false;
  bool errIsTerminal = false;
  std::size_t columns = 80;
};

// Standard input, output and error of this process.
Streams processStreams();

enum class ColorChoice { automatic, always, never };

// What follows --color: "auto", "always" or "never".
ColorChoice colorChoice(std::string_view word);

enum class Style { plain, strong, faint, good, warning, bad };

// One output stream: where it goes and how it may be written to.
class Terminal {
 public:
  Terminal(std::ostream& stream, bool isTerminal, std::size_t columns, ColorChoice color);

  [[nodiscard]] std::ostream& stream() const { return *stream_; }
  [[nodiscard]] bool isTerminal() const { return isTerminal_; }
  [[nodiscard]] std::size_t columns() const { return columns_; }

  // The text between the escape sequences of its style, or as it is where colours are not wanted.
  [[nodiscard]] std::string styled(std::string_view text, Style style) const;

  void line(std::string_view text) const { *stream_ << text << '\n'; }

 private:
  std::ostream* stream_;
  bool isTerminal_;
  std::size_t columns_;
  bool colors_;
};

}  // namespace orvanta::cli
