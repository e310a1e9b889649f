#include "cli/Table.h"

#include <algorithm>

#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 8;

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)), widths_(columns_.size()) {}

void Table::add(std::vector<Cell> row) {
  for (std::size_t i = 0; i < row.size(); ++i) {
    row[i].text = Text::singleLine(row[i].text);
    row[i].width = Text::displayWidth(row[i].text);
    widths_[i] = std::max(widths_[i], row[i].width);
  }
  rows_.push_back(std::move(row));
}

std::vector<std::size_t> Table::widthsFor(const Terminal& terminal) const {
  std::vector<std::size_t> widths = widths_;
  std::size_t total = 0;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (widths[i] == 0) continue;
    widths[i] = std::max(widths[i], Text::displayWidth(columns_[i].title));
    total += widths[i] + (total > 0 ? kGap : 0);
  }
  if (!terminal.isTerminal()) return widths;
  while (total > terminal.columns()) {
    std::size_t* widest = nullptr;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      if (columns_[i].shrinks && widths[i] > kNarrowest && (widest == nullptr || widths[i] > *widest)) {
        widest = &widths[i];
      }
    }
    if (widest == nullptr) break;
    --*widest;
    --total;
  }
  return widths;
}

std::string Table::lineOf(const std::vector<Cell>& row, const std::vector<std::size_t>& widths,
                          const Terminal& terminal) const {
  std::string line;
  std::size_t spaces = 0;
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (widths[i] == 0) continue;
    const bool fits = row[i].width <= widths[i];
    const std::string cut = fits ? "" : Text::fitToWidth(row[i].text, widths[i]);
    const std::string& text = fits ? row[i].text : cut;
    const std::size_t padding = widths[i] - (fits ? row[i].width : std::min(widths[i], Text::displayWidth(cut)));
    if (columns_[i].right) spaces += padding;
    if (!text.empty()) {
      line.append(spaces, ' ').append(terminal.styled(text, row[i].style));
      spaces = 0;
    }
    spaces += kGap + (columns_[i].right ? 0 : padding);
  }
  return line;
}

void Table::write(const Terminal& terminal) const {
  if (rows_.empty()) return;
  const auto widths = widthsFor(terminal);
  std::vector<Cell> header;
  for (const Column& column : columns_) {
    header.emplace_back(column.title, Style::strong).width = Text::displayWidth(column.title);
  }
  terminal.line(lineOf(header, widths, terminal));
  for (const auto& row : rows_) terminal.line(lineOf(row, widths, terminal));
}

}  // namespace orvanta::cli
