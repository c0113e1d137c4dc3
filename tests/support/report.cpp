#include "tests/support/report.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

REPORT::REPORT(const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, title);
  std::getline(lines, line);
  std::getline(lines, line);
  header = split(line, '\t');
  while (std::getline(lines, line) && !line.starts_with("Time spent dumping:")) {
    const std::vector<std::string> cells = split(line, '\t');
    ROW row;
    for (std::size_t i = 0; i < header.size(); ++i)
      row.cells[header[i]] = i < cells.size() ? cells[i] : "";
    rows.push_back(row);
  }
}

const REPORT::ROW& REPORT::row(const std::string& column, const std::string& value) const {
  const auto is_wanted = [&](const ROW& row) { return row.text(column) == value; };
  if (std::ranges::count_if(rows, is_wanted) != 1)
    throw std::out_of_range("not just one row with " + column + " " + value);
  return *std::ranges::find_if(rows, is_wanted);
}

std::vector<std::string> REPORT::column(const std::string& name) const {
  std::vector<std::string> cells;
  for (const ROW& row : rows) cells.push_back(row.text(name));
  return cells;
}

std::int64_t REPORT::sum(const std::string& column, const std::string& key,
                         const std::string& value) const {
  std::int64_t total = 0;
  for (const ROW& row : rows)
    if (key.empty() || row.text(key) == value) total += row.number(column);
  return total;
}
