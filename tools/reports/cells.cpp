#include "tools/reports/cells.h"

#include <algorithm>
#include <charconv>

namespace reports {

namespace {

template <class NUMBER>
bool is_number(std::string_view text, NUMBER& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

std::size_t tabs_in(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\t'));
}

}  // namespace

CELLS split_at_tabs(std::string_view text) {
  CELLS cells;
  for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
    end = text.find('\t', begin);
    cells.push_back(text.substr(begin, end - begin));
  }
  return cells;
}

std::string quoted(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string result = "\"";
  for (const char c : text.substr(0, longest)) result += (c >= ' ' && c <= '~') ? c : '?';
  return result + (text.size() > longest ? "...\"" : "\"");
}

bool ROW_READER::is_last_line(std::string_view line) const {
  return m_end == END::TIMING_LINE &&
         (line.starts_with("Time spent dumping:\t") || line.starts_with("Error timing this dump."));
}

void ROW_READER::expect_nothing_more() {
  while (const auto line = m_lines.next())
    if (!line->empty()) m_lines.fail("there is text behind the end of the report");
}

std::optional<CELLS> ROW_READER::next() {
  auto line = m_lines.next();
  m_row_line = m_lines.number();
  if (!line && m_end == END::TIMING_LINE)
    m_lines.fail("the report ends here, without the line that tells how long writing took");
  if (!line) return std::nullopt;
  if (is_last_line(*line)) {
    expect_nothing_more();
    return std::nullopt;
  }
  m_row = *line;
  for (std::size_t tabs = tabs_in(m_row); tabs + 1 < m_count; tabs += tabs_in(*line)) {
    line = m_row.size() > LINE_READER::longest_line ? std::nullopt : m_lines.next();
    if (!line || is_last_line(*line))
      fail("the row has " + std::to_string(tabs + 1) + " cells where the header has " +
           std::to_string(m_count));
    m_row.append("\n").append(*line);
  }
  return cells();
}

CELLS ROW_READER::cells() {
  CELLS result = split_at_tabs(m_row);
  if (const std::size_t surplus = result.size() - m_count; surplus > 0) {
    const auto free_begin = result.begin() + static_cast<std::ptrdiff_t>(m_free_cell);
    const auto free_last = free_begin + static_cast<std::ptrdiff_t>(surplus);
    *free_begin = std::string_view(
        free_begin->data(),
        static_cast<std::size_t>(free_last->data() + free_last->size() - free_begin->data()));
    result.erase(free_begin + 1, free_last + 1);
  }
  return result;
}

std::int64_t ROW_READER::number(std::string_view cell) {
  std::int64_t number = 0;
  if (!is_number(cell, number)) fail(quoted(cell) + " stands where a number is expected");
  return number;
}

std::uint32_t ROW_READER::line_number(std::string_view cell) {
  std::uint32_t number = 0;
  if (!is_number(cell, number)) fail(quoted(cell) + " stands where a line number is expected");
  return number;
}

std::uint64_t ROW_READER::address(std::string_view cell) {
  constexpr int hexadecimal = 16;
  std::uint64_t address = 0;
  if (cell == "0") return 0;
  if (!cell.starts_with("0x") || !is_number(cell.substr(2), address, hexadecimal))
    fail(quoted(cell) + " stands where an address is expected");
  return address;
}

}  // namespace reports
