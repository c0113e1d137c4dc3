// The reports of rows with figures: per site, module, bin and tag, and where modules lay.
#include <algorithm>

#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// The header of a table: which cell is what, whatever their order.
class HEADER {
 public:
  explicit HEADER(LINE_READER& lines) : m_lines(lines) {
    const auto empty = lines.next();
    if (!empty) lines.fail("the report ends here, before its header");
    if (!empty->empty()) lines.fail("an empty line is expected before the header");
    const auto line = lines.next();
    if (!line) lines.fail("the report ends here, before its header");
    m_line = lines.number();
    for (const std::string_view title : split_at_tabs(*line)) m_titles.emplace_back(title);
    for (std::size_t cell = 0; cell < m_titles.size(); ++cell)
      if (const auto figure = figure_of_title(m_titles[cell])) {
        m_figures.emplace_back(cell, *figure);
        m_known.set(*figure);
      }
    if (m_figures.empty()) lines.fail("the header names no figures");
  }

  std::size_t size() const { return m_titles.size(); }
  const KNOWN_FIGURES& known() const { return m_known; }

  std::size_t cell_of(std::string_view title) const {
    const auto found = std::find(m_titles.begin(), m_titles.end(), title);
    if (found == m_titles.end())
      m_lines.fail(m_line, "the header has no column \"" + std::string(title) + "\"");
    return static_cast<std::size_t>(found - m_titles.begin());
  }

  FIGURES figures(ROW_READER& rows, const CELLS& cells) const {
    FIGURES figures;
    for (const auto& [cell, figure] : m_figures) figures[figure] = rows.number(cells[cell]);
    return figures;
  }

 private:
  LINE_READER& m_lines;
  std::size_t m_line = 0;
  std::vector<std::string> m_titles;
  std::vector<std::pair<std::size_t, FIGURE>> m_figures;
  KNOWN_FIGURES m_known;
};

// Filled row by row, so that what was read before a fault is kept.
void read_named(LINE_READER& lines, std::string_view title, ROW_READER::END end,
                std::optional<TABLE<NAMED_ROW>>& table) {
  const HEADER header(lines);
  const std::size_t name = header.cell_of(title);
  table.emplace().known = header.known();
  ROW_READER rows(lines, header.size(), name, end);
  while (const auto cells = rows.next())
    table->rows.push_back({std::string((*cells)[name]), header.figures(rows, *cells)});
}

// "[at index 8]"; the number may not be there.
std::optional<std::int64_t> index_in(std::string_view title) {
  constexpr std::string_view before = "[at index ";
  const std::size_t found = title.find(before);
  if (found == std::string_view::npos) return std::nullopt;
  std::int64_t index = 0;
  for (const char c : title.substr(found + before.size(), 18)) {
    if (c < '0' || c > '9') break;
    index = index * 10 + (c - '0');
  }
  return index;
}

constexpr std::string_view between_quoted = "\",\"";

// A row of three quoted cells, of which the last two may have line breaks.
bool is_whole(std::string_view row) {
  const std::size_t first = row.find(between_quoted);
  return first != std::string_view::npos && row.ends_with('"') &&
         row.find(between_quoted, first + between_quoted.size()) != std::string_view::npos;
}

std::string whole_row(LINE_READER& lines, std::string_view first_line) {
  const std::size_t number = lines.number();
  std::string row(first_line);
  while (!is_whole(row)) {
    const auto line = row.size() > LINE_READER::longest_line ? std::nullopt : lines.next();
    if (!line || line->starts_with("\"0")) lines.fail(number, "the row is not three quoted cells");
    row.append("\n").append(*line);
  }
  return row;
}

// Takes a cell off the front.
std::string_view next_quoted(std::string_view& row) {
  const std::size_t end = row.find(between_quoted);
  const std::string_view cell = row.substr(0, end);
  row.remove_prefix(end + between_quoted.size());
  return cell;
}

}  // namespace

void read_sites(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS& texts) {
  const HEADER header(lines);
  const std::size_t address = header.cell_of("Address");
  const std::size_t module = header.cell_of("Module");
  const std::size_t file = header.cell_of("File");
  const std::size_t line = header.cell_of("Line");
  const std::size_t function = header.cell_of("Function");
  process.peak_sample = index_in(first_line);
  process.sites.emplace().known = header.known();
  ROW_READER rows(lines, header.size(), file, ROW_READER::END::TIMING_LINE);
  while (const auto cells = rows.next()) {
    SITE site;
    site.is_catch_all = (*cells)[address] == "OTHER";
    if (!site.is_catch_all) site.address = rows.address((*cells)[address]);
    site.module = texts.keep((*cells)[module]);
    site.file = texts.keep((*cells)[file]);
    site.line = rows.line_number((*cells)[line]);
    site.function = texts.keep((*cells)[function]);
    site.figures = header.figures(rows, *cells);
    process.sites->rows.push_back(site);
  }
}

void read_modules(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  read_named(lines, "Subsystem", ROW_READER::END::TIMING_LINE, process.modules);
}

void read_bins(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  read_named(lines, "Name", ROW_READER::END::FILE, process.bins);
}

void read_tags(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  read_named(lines, "Name", ROW_READER::END::FILE, process.tags);
}

void read_base_addresses(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  ROW_READER numbers(lines, 1, 0, ROW_READER::END::FILE);
  while (const auto line = lines.next()) {
    if (!line->starts_with('"')) lines.fail("the row is not three quoted cells");
    const std::string row = whole_row(lines, *line);
    std::string_view rest = std::string_view(row).substr(1, row.size() - 2);
    const std::string_view address = next_quoted(rest);
    const std::string_view module = next_quoted(rest);
    process.base_addresses.push_back(
        {numbers.address(address), std::string(module), std::string(rest)});
  }
}

}  // namespace reports
