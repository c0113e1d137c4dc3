#include "tests/support/report.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  if (!text.empty() && text.back() == separator && separator == '\t') parts.emplace_back();
  return parts;
}

const std::string& REPORT::ROW::text(const std::string& column) const {
  const auto found = std::find(m_header->begin(), m_header->end(), column);
  const auto index = static_cast<std::size_t>(found - m_header->begin());
  if (index >= m_cells.size()) throw std::out_of_range("no column " + column);
  return m_cells[index];
}

std::int64_t REPORT::ROW::number(const std::string& column) const {
  return std::stoll(text(column));
}

REPORT::REPORT(const std::string& text, std::size_t header_line) {
  const std::vector<std::string> lines = split(text, '\n');
  if (lines.size() <= header_line) throw std::out_of_range("no report: \"" + text + "\"");
  m_title = lines[0];
  m_header = std::make_shared<const std::vector<std::string>>(split(lines[header_line], '\t'));
  for (std::size_t line = header_line + 1; line < lines.size(); ++line) {
    if (lines[line].starts_with("Time spent dumping:")) {
      m_timing = lines[line];
      break;
    }
    m_rows.emplace_back(m_header, split(lines[line], '\t'));
  }
}

const REPORT::ROW& REPORT::row(const std::string& column, const std::string& value) const {
  const ROW* found = nullptr;
  for (const ROW& row : m_rows) {
    if (row.text(column) != value) continue;
    if (found != nullptr) throw std::out_of_range("several rows with " + column + " " + value);
    found = &row;
  }
  if (found == nullptr) throw std::out_of_range("no row with " + column + " " + value);
  return *found;
}

std::int64_t REPORT::sum(const std::string& column,
                         const std::function<bool(const ROW&)>& wanted) const {
  std::int64_t total = 0;
  for (const ROW& row : m_rows)
    if (wanted(row)) total += row.number(column);
  return total;
}
