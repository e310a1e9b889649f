#include "cli/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <iostream>

#include "platform/Host.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kUsualColumns = 80;

std::size_t columnsFromEnvironment() {
  const auto text = environmentVariable("COLUMNS");
  std::size_t columns = 0;
  if (text) std::from_chars(text->data(), text->data() + text->size(), columns);
  return columns > 0 ? columns : kUsualColumns;
}

std::size_t columnsOf(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return columnsFromEnvironment();
}

bool wantsColors(ColorChoice choice, bool isTerminal) {
  if (choice != ColorChoice::automatic) return choice == ColorChoice::always;
  if (const auto force = environmentVariable("CLICOLOR_FORCE"); force && *force != "0") return true;
  if (environmentVariable("NO_COLOR")) return false;
  return isTerminal && environmentVariable("TERM").value_or("dumb") != "dumb";
}

std::string_view escapeSequence(Style style) {
  switch (style) {
    case Style::plain: return "";
    case Style::strong: return "\033[1m";
    case Style::faint: return "\033[2m";
    case Style::good: return "\033[32m";
    case Style::warning: return "\033[33m";
    case Style::bad: return "\033[31m";
  }
  return "";
}

}  // namespace

ColorChoice colorChoice(std::string_view word) {
  if (word == "always") return ColorChoice::always;
  return word == "never" ? ColorChoice::never : ColorChoice::automatic;
}

Streams processStreams() {
  static char buffer[std::size_t{1} << 16];
  std::ios::sync_with_stdio(false);
  std::cin.tie(nullptr);
  std::cout.rdbuf()->pubsetbuf(buffer, sizeof buffer);
  const bool outIsTerminal = ::isatty(STDOUT_FILENO) == 1;
  return {std::cin,
          std::cout,
          std::cerr,
          ::isatty(STDIN_FILENO) == 1,
          outIsTerminal,
          ::isatty(STDERR_FILENO) == 1,
          columnsOf(outIsTerminal ? STDOUT_FILENO : STDERR_FILENO)};
}

Terminal::Terminal(std::ostream& stream, bool isTerminal, std::size_t columns, ColorChoice color)
    : stream_(&stream), isTerminal_(isTerminal), columns_(columns), colors_(wantsColors(color, isTerminal)) {}

std::string Terminal::styled(std::string_view text, Style style) const {
  if (!colors_ || style == Style::plain) return std::string(text);
  return std::string(escapeSequence(style)).append(text).append("\033[0m");
}

}  // namespace orvanta::cli
