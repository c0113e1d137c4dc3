// Rows of cells between tabs, of whatever text one of the cells holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/line_reader.h"

namespace reports {

using CELLS = std::vector<std::string_view>;

/// The parts of `text` between tabs.
CELLS split_at_tabs(std::string_view text);

/// The rows of a table. Names stand in the reports as the host gave them: a row with too many
/// cells has tabs, one with too few has line breaks in its `free_cell`.
class ROW_READER {
 public:
  enum class END {
    TIMING_LINE,  ///< a line says how long writing took; a report without it is cut
    FILE,
  };

  ROW_READER(LINE_READER& lines, std::size_t cells, std::size_t free_cell, END end)
      : m_lines(lines), m_count(cells), m_free_cell(free_cell), m_end(end) {}

  /// Exactly as many cells as asked for; good until the next row is. None behind the last row.
  std::optional<CELLS> next();

  /// The number in a cell of the row read last; fails when it is none.
  std::int64_t number(std::string_view cell);
  std::uint32_t line_number(std::string_view cell);
  std::uint64_t address(std::string_view cell);

  /// At the beginning of that row; without one, at the line read last.
  [[noreturn]] void fail(const std::string& what) {
    m_lines.fail(m_row_line == 0 ? m_lines.number() : m_row_line, what);
  }

 private:
  bool is_last_line(std::string_view line) const;
  void expect_nothing_more();
  CELLS cells();

  LINE_READER& m_lines;
  std::size_t m_count;
  std::size_t m_free_cell;
  END m_end;
  std::string m_row;
  std::size_t m_row_line = 0;
};

/// `text`, shortened for a sentence about it, without control characters.
std::string quoted(std::string_view text);

}  // namespace reports
