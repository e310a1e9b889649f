#pragma once

// Aligned columns, of which those without content are left out. Cells hold what strangers wrote, so every text is made
// safe for one line before it is shown. On a terminal the table fits its width; elsewhere nothing is cut.

#include <cstddef>
#include <string>
#include <vector>

#include "cli/Terminal.h"

namespace orvanta::cli {

struct Column {
  std::string title;
  bool shrinks = false;  // gives up width first when the table is too wide
  bool right = false;
};

struct Cell {
  Cell(std::string cellText, Style cellStyle = Style::plain)  // NOLINT(google-explicit-constructor): a text is a cell
      : text(std::move(cellText)), style(cellStyle) {}
  Cell(const char* cellText) : text(cellText) {}  // NOLINT(google-explicit-constructor)

  std::string text;
  Style style = Style::plain;
  std::size_t width = 0;  // set by the table
};

class Table {
 public:
  explicit Table(std::vector<Column> columns);

  // One cell for each column.
  void add(std::vector<Cell> row);
  [[nodiscard]] bool isEmpty() const { return rows_.empty(); }

  // The header and the rows; nothing at all for a table without rows.
  void write(const Terminal& terminal) const;

 private:
  [[nodiscard]] std::vector<std::size_t> widthsFor(const Terminal& terminal) const;
  [[nodiscard]] std::string lineOf(const std::vector<Cell>& row, const std::vector<std::size_t>& widths,
                                   const Terminal& terminal) const;

  std::vector<Column> columns_;
  std::vector<std::size_t> widths_;  // of the widest cell, without the title: 0 for a column without content
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace orvanta::cli
