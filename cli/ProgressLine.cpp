#include "cli/ProgressLine.h"

#include <algorithm>

#include <fmt/format.h>

#include "foundations/Text.h"

namespace orvanta::cli {

void ProgressLine::show(const Progress& progress) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  if (now < due_) return;
  due_ = now + std::chrono::milliseconds(100);
  shown_ = true;
  const std::string count = progress.total > 0 ? fmt::format(" {} of {}", progress.done, progress.total) : "";
  const std::string text = Text::singleLine(fmt::format("{}{} …", progress.what, count));
  terminal_->stream() << "\r\033[K" << Text::fitToWidth(text, std::max<std::size_t>(terminal_->columns(), 2) - 1)
                      << std::flush;
}

void ProgressLine::writeAbove(std::string_view text) {
  const std::lock_guard lock(mutex_);
  clear();
  terminal_->line(Text::singleLine(text));
}

void ProgressLine::clear() {
  if (shown_) terminal_->stream() << "\r\033[K" << std::flush;
  shown_ = false;
}

}  // namespace orvanta::cli
