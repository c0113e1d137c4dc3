#include "tools/command/options.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <utility>

#include "tools/command/output.h"
#include "tools/command/text.h"
#include "tools/command/units.h"
#include "tools/reports/read_run.h"

namespace command {

namespace {

using reports::BY, reports::GROUP, reports::SITE;

constexpr std::array<std::pair<const char*, BY>, 6> groupings = {{{"line", BY::LINE},
                                                                  {"function", BY::FUNCTION},
                                                                  {"file", BY::FILE},
                                                                  {"module", BY::MODULE},
                                                                  {"bin", BY::BIN},
                                                                  {"tag", BY::TAG}}};

// Of the site that holds most, with a sign where others of the row differ.
std::string text_of(const GROUP& row, std::string_view SITE::*text, std::string_view value) {
  return printable(value) + (row.is_of_several(text) ? " +" : "");
}

std::string place_of(const GROUP& row, bool full_paths) {
  if (row.file.empty()) return {};
  const std::string file = printable(full_paths ? row.file : base_name(row.file));
  return row.line == 0 ? file : fmt::format("{}:{}", file, row.line);
}

}  // namespace

void RUN_ARGUMENT::add_to(CLI::App& app, const std::string& name, const std::string& help) {
  app.add_option(name, m_path, help)->required();
}

void RUN_ARGUMENT::add_lenient_to(CLI::App& app) {
  app.add_flag("--lenient", m_lenient,
               "Of a damaged report, take what stands before the damage, and tell");
}

reports::RUN RUN_ARGUMENT::read_from(const std::string& path) const {
  reports::RUN run =
      reports::read_run(path, m_lenient ? reports::DAMAGED::KEPT : reports::DAMAGED::REFUSED);
  for (const std::string& note : run.notes) tell(printable(note));
  return run;
}

void BY_OPTION::add_to(CLI::App& app) {
  std::vector<std::string> names;
  names.reserve(groupings.size());
  for (const auto& [name, by] : groupings) names.emplace_back(name);
  app.add_option("--by", m_name, "What a row is: line, function, file, module, bin or tag")
      ->check(CLI::IsMember(names).description(""))
      ->capture_default_str();
}

BY BY_OPTION::by() const {
  for (const auto& [name, by] : groupings)
    if (m_name == name) return by;
  return BY::LINE;
}

void FIGURE_OPTION::add_to(CLI::App& app, const std::string& option, const std::string& help) {
  app.add_option(option, m_key, help)
      ->check(CLI::IsMember(figure_keys()).description(""))
      ->capture_default_str();
}

std::vector<std::string> figure_keys() {
  std::vector<std::string> keys;
  keys.reserve(reports::figure_columns.size());
  for (const auto& column : reports::figure_columns) keys.emplace_back(column.key);
  return keys;
}

std::string figure_text(reports::FIGURE figure, std::int64_t value, bool exact) {
  const bool is_exact = exact || !reports::figure_columns[figure].is_bytes;
  return is_exact ? std::to_string(value) : human(value);
}

void tell_of_processes_without(const reports::RUN& run, BY by) {
  const reports::PROCESS* first = nullptr;
  std::size_t count = 0;
  for (const reports::PROCESS& process : run.processes) {
    if (reports::tells(process, by)) continue;
    if (count++ == 0) first = &process;
  }
  if (count != 0 && count != run.processes.size())
    tell(fmt::format("{}: {} of {} processes have no report of such rows, as {}", run.path, count,
                     run.processes.size(), first->name));
}

void tell_if_all_are_zero(const reports::RUN& run, const reports::GROUPS& groups,
                          reports::FIGURE figure) {
  const auto is_held = [figure](const GROUP& row) { return row.figures[figure] > 0; };
  if (figure == reports::highest_of(groups.total) ||
      std::any_of(groups.rows.begin(), groups.rows.end(), is_held))
    return;
  tell(fmt::format("{}: no row has {} above zero; --column {} tells more", run.path,
                   reports::figure_columns[figure].key,
                   reports::figure_columns[reports::highest_of(groups.total)].key));
}

std::string name_of(const reports::RUN& run) {
  if (run.processes.size() != 1) return fmt::format("{} processes", run.processes.size());
  return printable(run.processes.front().name);
}

std::vector<std::string> text_headings(BY by) {
  switch (by) {
    case BY::MODULE:
      return {"MODULE"};
    case BY::BIN:
      return {"BIN"};
    case BY::TAG:
      return {"TAG"};
    case BY::FILE:
      return {"FILE", "MODULE"};
    case BY::FUNCTION:
      return {"FUNCTION", "FILE", "MODULE"};
    default:
      return {"LINE", "FUNCTION", "MODULE"};
  }
}

std::vector<std::string> text_cells(const GROUP& row, BY by, bool full_paths) {
  std::vector<std::string> cells;
  if (!row.name.empty()) {
    cells = {printable(row.name)};
  } else {
    const std::string module = text_of(row, &SITE::module, row.module);
    const std::string function = text_of(row, &SITE::function, row.function);
    const std::string place = place_of(row, full_paths);
    if (by == BY::FILE)
      cells = {place, module};
    else if (by == BY::FUNCTION)
      cells = {function, place, module};
    else
      cells = {place, function, module};
  }
  cells.resize(text_headings(by).size());
  return cells;
}

}  // namespace command
