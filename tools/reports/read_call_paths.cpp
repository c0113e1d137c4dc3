// The report of call paths: sections of numbered rows, each referring to rows before it.
#include <limits>

#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// More than the library keeps, and few enough for whoever walks a stack.
constexpr std::uint16_t deepest = 1024;

// A section's title "NAME<tab>COUNT" and its rows, of which `free_cell` may hold tabs and breaks.
class SECTION {
 public:
  SECTION(LINE_READER& lines, std::string_view name, std::size_t cells, std::size_t free_cell)
      : m_rows(lines, cells, free_cell, ROW_READER::END::FILE) {
    ROW_READER title(lines, 2, 1, ROW_READER::END::FILE);
    const auto found = title.next();
    if (!found) lines.fail("the report ends here, before its " + std::string(name));
    if ((*found)[0] != name) title.fail("the section \"" + std::string(name) + "\" begins here");
    m_count = title.number((*found)[1]);
    if (m_count < 0 || m_count > std::numeric_limits<std::uint32_t>::max())
      title.fail("no section has so many rows");
  }

  // The next row; false behind the last.
  bool next() {
    if (m_number == m_count) return false;
    const auto cells = m_rows.next();
    if (!cells) m_rows.fail("the report ends here, " + missing() + " rows before the section does");
    m_cells = *cells;
    ++m_number;
    return true;
  }
  // The same, of rows that begin with their number.
  bool next_numbered() {
    if (!next()) return false;
    if (m_rows.number(m_cells[0]) != m_number)
      m_rows.fail("row " + std::to_string(m_number) + " is expected here");
    return true;
  }

  std::int64_t count() const { return m_count; }
  std::string_view text(std::size_t cell) const { return m_cells[cell]; }
  std::int64_t number(std::size_t cell) { return m_rows.number(m_cells[cell]); }
  std::uint32_t line_number(std::size_t cell) { return m_rows.line_number(m_cells[cell]); }
  std::uint64_t address(std::size_t cell) { return m_rows.address(m_cells[cell]); }

  // The number of a row that stands before.
  std::uint32_t reference(std::size_t cell, std::size_t highest, std::int64_t lowest = 0) {
    const std::int64_t value = number(cell);
    if (value < lowest || static_cast<std::uint64_t>(value) > highest)
      m_rows.fail(quoted(m_cells[cell]) + " is the number of no row before");
    return static_cast<std::uint32_t>(value);
  }
  [[noreturn]] void fail(const std::string& what) { m_rows.fail(what); }

 private:
  std::string missing() const { return std::to_string(m_count - m_number); }

  ROW_READER m_rows;
  std::int64_t m_count = 0;
  std::int64_t m_number = 0;
  CELLS m_cells;
};

// The lines in front of the sections.
void read_settings(LINE_READER& lines, CALL_PATHS& paths) {
  constexpr std::string_view before_last = "beyond_limit";
  ROW_READER rows(lines, 2, 1, ROW_READER::END::FILE);
  while (const auto cells = rows.next()) {
    if ((*cells)[0] == before_last) {
      paths.beyond_limit = rows.number((*cells)[1]);
      return;
    }
    const CELLS setting = split_at_tabs((*cells)[1]);
    if ((*cells)[0] != "setting" || setting.size() != 2) rows.fail("a setting is expected here");
    const std::int64_t value = rows.number(setting[1]);
    if (setting[0] == "depth") paths.depth = value;
    if (setting[0] == "limit") paths.limit = value;
    if (setting[0] == "per_bin") paths.is_per_bin = value != 0;
  }
  lines.fail("the report ends here, behind its settings");
}

void read_modules(LINE_READER& lines, CALL_PATHS& paths, TEXTS& texts) {
  SECTION section(lines, "modules", 6, 5);
  while (section.next_numbered())
    paths.modules.push_back({.base = section.address(1),
                             .size = static_cast<std::uint64_t>(section.number(2)),
                             .build_id = std::string(section.text(3)),
                             .name = texts.keep(section.text(4)),
                             .path = texts.keep(section.text(5))});
}

void read_frames(LINE_READER& lines, CALL_PATHS& paths) {
  SECTION section(lines, "frames", 3, 2);
  while (section.next_numbered())
    paths.frames.push_back(
        {.module = section.reference(1, paths.modules.size()), .offset = section.address(2)});
}

void read_sites(LINE_READER& lines, CALL_PATHS& paths, TEXTS& texts) {
  constexpr FIGURE figures[] = {CURRENT_BYTES,  PEAK_BYTES,  CUMULATIVE_BYTES,
                                CURRENT_BLOCKS, PEAK_BLOCKS, CUMULATIVE_BLOCKS};
  SECTION section(lines, "sites", 12, 3);
  while (section.next_numbered()) {
    SITE site;
    site.is_catch_all = section.text(1) == "OTHER";
    if (!site.is_catch_all) site.address = section.address(1);
    site.module = texts.keep(section.text(2));
    site.file = texts.keep(section.text(3));
    site.line = section.line_number(4);
    site.function = texts.keep(section.text(5));
    std::size_t cell = 6;
    for (const FIGURE figure : figures) site.figures[figure] = section.number(cell++);
    paths.sites.push_back(site);
  }
}

void read_callers(LINE_READER& lines, CALL_PATHS& paths) {
  SECTION section(lines, "callers", 3, 2);
  std::vector<std::uint16_t> depths(1);
  while (section.next_numbered()) {
    const CALL_PATHS::CALLER caller{.caller = section.reference(1, paths.callers.size()),
                                    .frame = section.reference(2, paths.frames.size(), 1)};
    if (depths[caller.caller] == deepest) section.fail("no stack is so deep");
    depths.push_back(static_cast<std::uint16_t>(depths[caller.caller] + 1));
    paths.callers.push_back(caller);
  }
}

void read_bins(LINE_READER& lines, CALL_PATHS& paths) {
  SECTION section(lines, "bins", 2, 1);
  while (section.next_numbered()) paths.bins.emplace_back(section.text(1));
}

std::int64_t read_paths(LINE_READER& lines, CALL_PATHS& paths) {
  SECTION section(lines, "paths", 3 + PATH_FIGURES::order.size(), 0);
  while (section.next()) {
    CALL_PATHS::PATH path{.caller = section.reference(0, paths.callers.size()),
                          .site = section.reference(1, paths.sites.size(), 1),
                          .bin = section.reference(2, paths.bins.size()),
                          .figures = {}};
    for (std::size_t i = 0; i < PATH_FIGURES::order.size(); ++i)
      path.figures.at(i) = section.number(3 + i);
    paths.paths.push_back(path);
  }
  return section.count();
}

}  // namespace

void read_call_paths(LINE_READER& lines, std::string_view first_line, PROCESS& process,
                     TEXTS& texts) {
  constexpr std::string_view understood = "1";
  const std::string_view version = first_line.substr(first_line.find('\t') + 1);
  if (version != understood)
    lines.fail("call paths are written in version " + quoted(version) +
               ", and only version 1 is known here");
  CALL_PATHS& paths = process.call_paths.emplace();
  read_settings(lines, paths);
  read_modules(lines, paths, texts);
  read_frames(lines, paths);
  read_sites(lines, paths, texts);
  read_callers(lines, paths);
  read_bins(lines, paths);
  const std::int64_t count = read_paths(lines, paths);
  if (SECTION(lines, "end", 1, 0).count() != count)
    lines.fail("the report has other numbers of paths at its beginning and at its end");
  if (const auto line = lines.next(); line && !line->empty())
    lines.fail("there is text behind the end of the report");
}

}  // namespace reports
