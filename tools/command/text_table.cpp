#include "tools/command/text_table.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "tools/command/output.h"
#include "tools/command/text.h"

namespace command {

namespace {

constexpr std::size_t between = 2;
constexpr std::size_t narrowest_text = 12;

}  // namespace

void TEXT_TABLE::add_column(std::string heading, COLUMN kind) {
  m_headings.push_back(std::move(heading));
  m_kinds.push_back(kind);
}

std::vector<std::size_t> TEXT_TABLE::widths(std::size_t width) const {
  std::vector<std::size_t> widths;
  for (const std::string& heading : m_headings) widths.push_back(width_of(heading));
  for (const auto& row : m_rows)
    for (std::size_t i = 0; i < widths.size(); ++i)
      widths[i] = std::max(widths[i], width_of(row[i]));
  if (width == 0) return widths;

  std::size_t taken = std::accumulate(widths.begin(), widths.end(), between * (widths.size() - 1));
  while (taken > width) {
    // The widest text gives way, down to the next widest.
    std::size_t widest = widths.size();
    for (std::size_t i = 0; i < widths.size(); ++i)
      if (m_kinds[i] == COLUMN::TEXT && widths[i] > narrowest_text &&
          (widest == widths.size() || widths[i] > widths[widest]))
        widest = i;
    if (widest == widths.size()) break;
    --widths[widest];
    --taken;
  }
  return widths;
}

void TEXT_TABLE::print_row(OUTPUT& out, const std::vector<std::string>& cells,
                           const std::vector<std::size_t>& widths) const {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string cell = shortened(cells[i], widths[i]);
    const std::string blanks(widths[i] - width_of(cell), ' ');
    if (i != 0) line.append(between, ' ');
    line += m_kinds[i] == COLUMN::FIGURE ? blanks + cell : cell + blanks;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  out.write(line + '\n');
}

void TEXT_TABLE::print(OUTPUT& out, std::size_t width) const {
  const auto fitting = widths(width);
  print_row(out, m_headings, fitting);
  for (const auto& row : m_rows) print_row(out, row, fitting);
}

}  // namespace command
