// The reports of samples.
#include <charconv>
#include <cmath>
#include <limits>

#include "tools/reports/cells.h"
#include "tools/reports/read_report.h"

namespace reports {

namespace {

// Of a timeline, behind the first cell, which is empty. A name may hold a tab or a line break: the
// tags' names are known from their own report, and then the header is all of them in a row.
std::vector<std::string> names_in_header(LINE_READER& lines, const TABLE<NAMED_ROW>* tags) {
  const auto line = lines.next();
  if (!line) lines.fail("the report ends here, before its header");
  std::string header(*line);
  if (tags != nullptr) {
    std::string expected;
    std::vector<std::string> names;
    for (const NAMED_ROW& tag : tags->rows) {
      expected.append("\t").append(tag.name);
      names.push_back(tag.name);
    }
    while (header.size() < expected.size() && expected.starts_with(header) &&
           expected[header.size()] == '\n') {
      const auto more = lines.next();
      if (!more) lines.fail("the report ends here, in the middle of its header");
      header.append("\n").append(*more);
    }
    if (header == expected) return names;
  }
  CELLS cells = split_at_tabs(header);
  if (!cells.front().empty()) lines.fail("the header of a timeline begins with a tab");
  return {cells.begin() + 1, cells.end()};
}

void add_label(TIMELINE& timeline, std::string_view label) {
  if (timeline.phases.empty() || timeline.phases.back().label != label)
    timeline.phases.push_back({std::string(label), timeline.samples, 0});
  ++timeline.phases.back().count;
  ++timeline.samples;
}

void read_timeline(LINE_READER& lines, std::string_view first_line,
                   std::optional<TIMELINE>& timeline, const TABLE<NAMED_ROW>* tags) {
  if (const auto empty = lines.next(); !empty || !empty->empty())
    lines.fail("an empty line is expected before the header");
  const bool is_summary = first_line.find("Detailed") == std::string_view::npos;
  const auto names = names_in_header(lines, is_summary ? nullptr : tags);
  timeline.emplace().is_summary = is_summary;
  for (const std::string& name : names) timeline->series.push_back({name, {}});
  ROW_READER rows(lines, names.size() + 1, 0, ROW_READER::END::TIMING_LINE);
  std::vector<std::int64_t> sample(names.size());
  while (const auto cells = rows.next()) {
    for (std::size_t i = 0; i < sample.size(); ++i) sample[i] = rows.number((*cells)[i + 1]);
    for (std::size_t i = 0; i < sample.size(); ++i) timeline->series[i].values.push_back(sample[i]);
    add_label(*timeline, cells->front());
  }
}

// What could not be read has all bits set, or as many as are left where it was kilobytes.
double auxiliary_figure(ROW_READER& rows, std::string_view cell) {
  double value = 0;
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
  if (error != std::errc() || end != cell.data() + cell.size() || !std::isfinite(value))
    rows.fail(quoted(cell) + " stands where a number is expected");
  constexpr double too_large = 9.2e18;
  return value > too_large ? std::numeric_limits<double>::quiet_NaN() : value;
}

}  // namespace

void read_module_bytes(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS&) {
  read_timeline(lines, first_line, process.module_bytes, nullptr);
}

void read_module_blocks(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS&) {
  read_timeline(lines, first_line, process.module_blocks, nullptr);
}

void read_tag_bytes(LINE_READER& lines, std::string_view first_line, PROCESS& process, TEXTS&) {
  read_timeline(lines, first_line, process.tag_bytes, process.tags ? &*process.tags : nullptr);
}

void read_auxiliary(LINE_READER& lines, std::string_view, PROCESS& process, TEXTS&) {
  if (const auto empty = lines.next(); !empty || !empty->empty())
    lines.fail("an empty line is expected before the header");
  const auto header = lines.next();
  if (!header) lines.fail("the report ends here, before its header");
  auto& series = process.auxiliary.emplace().series;
  for (const std::string_view name : split_at_tabs(*header))
    series.push_back({std::string(name), {}});
  ROW_READER rows(lines, series.size(), 0, ROW_READER::END::TIMING_LINE);
  std::vector<double> sample(series.size());
  while (const auto cells = rows.next()) {
    for (std::size_t i = 0; i < sample.size(); ++i) sample[i] = auxiliary_figure(rows, (*cells)[i]);
    for (std::size_t i = 0; i < sample.size(); ++i) series[i].values.push_back(sample[i]);
  }
}

}  // namespace reports
