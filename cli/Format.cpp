#include "cli/Format.h"

#include <array>
#include <ctime>

#include <fmt/format.h>

#include "files/Paths.h"
#include "foundations/Text.h"

namespace orvanta::cli {

std::string counted(std::size_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string inQuotes(std::string_view name) { return "'" + Text::singleLine(name) + "'"; }

std::string withSeparators(std::int64_t number) {
  std::string text = std::to_string(number);
  const std::size_t first = number < 0 ? 1 : 0;
  for (std::size_t at = text.size(); at > first + 3;) text.insert(at -= 3, ",");
  return text;
}

std::string byteCount(std::int64_t bytes) {
  constexpr std::array units{"B", "kB", "MB", "GB", "TB"};
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; amount >= 999.5 && unit + 1 < units.size(); ++unit) amount /= 1000;
  return unit == 0 || amount >= 99.5 ? fmt::format("{:.0f} {}", amount, units[unit])
                                     : fmt::format("{:.1f} {}", amount, units[unit]);
}

std::string localTime(std::int64_t millis) {
  const auto seconds = static_cast<std::time_t>(millis / 1000);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                     parts.tm_hour, parts.tm_min);
}

std::string shortPath(const std::filesystem::path& path, const UserFolders& user) {
  const std::string home = fsPath(user.home);
  std::string text = fsPath(path);
  if (home.size() > 1 && isInside(path, user.home)) text.replace(0, home.size(), "~");
  return text;
}

std::string wrapped(std::string_view text, std::size_t indent, std::size_t columns) {
  std::string lines;
  std::size_t width = 0;
  for (const std::string_view word : Text::split(text, ' ')) {
    const std::size_t wordWidth = Text::displayWidth(word);
    if (width > 0 && width + 1 + wordWidth > columns) {
      lines.push_back('\n');
      width = 0;
    }
    if (width == 0) {
      lines.append(indent, ' ');
      width = indent;
    } else {
      lines.push_back(' ');
      ++width;
    }
    lines.append(word);
    width += wordWidth;
  }
  return lines;
}

}  // namespace orvanta::cli
