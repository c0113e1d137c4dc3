// tuk-mem diff: what changed between two runs.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/page.h"
#include "tools/command/run_json.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"
#include "tools/command/text_table.h"
#include "tools/command/units.h"
#include "tools/reports/row_pairs.h"

namespace command {

namespace {

using reports::BY, reports::FIGURE, reports::FIGURES, reports::GROUP, reports::GROUPS,
    reports::ROW_PAIR;

constexpr char const* description =
    "Shows which lines hold more than before, which less, which came and which went.\n"
    "A line is the same when module, function and file are, wherever it has moved in them.";

constexpr char const* footer =
    "The processes of a run are summed.\n\n"
    "Examples:\n"
    "  tuk-mem diff before after --top 10\n"
    "  tuk-mem diff before after --html changes.html        a page to look at\n"
    "  tuk-mem diff before after --column current_bytes     what is live at the end\n"
    "  tuk-mem diff run/snapshot-0001 run/snapshot-0002     what happened in between";

struct OPTIONS {
  RUN_ARGUMENT before;
  RUN_ARGUMENT after;
  BY_OPTION by;
  FIGURE_OPTION figure;
  std::size_t top = 0;
  bool bytes = false;
  bool full_paths = false;
  bool json = false;
  std::string page;
};

// A row and what became of it, in the figure that is compared.
struct CHANGE {
  ROW_PAIR rows;
  std::int64_t before;
  std::int64_t after;

  std::int64_t difference() const { return reports::wrapping_difference(after, before); }
  char const* what() const {
    if (rows.before == nullptr) return "came";
    if (rows.after == nullptr) return "went";
    return difference() > 0 ? "grew" : difference() < 0 ? "shrank" : "same";
  }
};

FIGURES figures_of(const GROUP* row) { return row == nullptr ? FIGURES() : row->figures; }

// The largest change first.
std::vector<CHANGE> changes_of(const GROUPS& before, const GROUPS& after, FIGURE figure) {
  std::vector<CHANGE> changes;
  for (const ROW_PAIR& rows : pair_rows(before, after))
    changes.push_back({rows, figures_of(rows.before)[figure], figures_of(rows.after)[figure]});
  std::stable_sort(changes.begin(), changes.end(), [](const CHANGE& a, const CHANGE& b) {
    const auto size = [](const CHANGE& change) {
      const auto difference = static_cast<std::uint64_t>(change.difference());
      return change.difference() < 0 ? 0 - difference : difference;
    };
    return size(a) > size(b);
  });
  return changes;
}

struct COMPARISON {
  GROUPS before;
  GROUPS after;
  std::vector<CHANGE> changes;
};

std::string change_text(FIGURE figure, std::int64_t difference, bool exact) {
  const std::string text = figure_text(figure, difference, exact);
  return fmt::format("{}{}", difference > 0 ? "+" : "", text);
}

void print_table(OUTPUT& out, const COMPARISON& comparison, const OPTIONS& options) {
  const FIGURE figure = options.figure.figure();
  const BY by = options.by.by();
  TEXT_TABLE table;
  for (char const* const heading : {"CHANGE", "BEFORE", "AFTER"})
    table.add_column(heading, TEXT_TABLE::COLUMN::FIGURE);
  table.add_column("", TEXT_TABLE::COLUMN::TEXT);
  for (const std::string& heading : text_headings(by))
    table.add_column(heading, TEXT_TABLE::COLUMN::TEXT);

  const auto add = [&](std::int64_t before, std::int64_t after, std::vector<std::string> texts) {
    std::vector<std::string> cells = {
        change_text(figure, reports::wrapping_difference(after, before), options.bytes),
        figure_text(figure, before, options.bytes), figure_text(figure, after, options.bytes)};
    texts.resize(text_headings(by).size() + 1);
    cells.insert(cells.end(), texts.begin(), texts.end());
    table.add_row(std::move(cells));
  };
  std::size_t shown = 0;
  std::size_t more = 0;
  std::size_t same = 0;
  for (const CHANGE& change : comparison.changes) {
    if (change.difference() == 0) {
      ++same;
    } else if (options.top != 0 && shown == options.top) {
      ++more;
    } else {
      const GROUP& row = change.rows.after != nullptr ? *change.rows.after : *change.rows.before;
      std::vector<std::string> texts = text_cells(row, by, options.full_paths);
      texts.insert(texts.begin(), change.what());
      add(change.before, change.after, std::move(texts));
      ++shown;
    }
  }
  add(comparison.before.total[figure], comparison.after.total[figure], {"", "total"});
  table.print(out, out.width());
  out.write(fmt::format("{} changed rows are not shown, {} are the same.\n", more, same));
}

JSON json_of(const CHANGE& change, const COMPARISON& comparison) {
  const GROUP& row = change.rows.after != nullptr ? *change.rows.after : *change.rows.before;
  JSON json = json_of_names(row);
  json.erase("addresses");
  json["change"] = change.what();
  if (change.rows.before != nullptr && change.rows.after != nullptr &&
      change.rows.before->line != row.line)
    json["line_before"] = change.rows.before->line;
  add_figures(json["before"] = JSON::object(), figures_of(change.rows.before),
              comparison.before.known);
  add_figures(json["after"] = JSON::object(), figures_of(change.rows.after),
              comparison.after.known);
  return json;
}

void print_json(OUTPUT& out, const COMPARISON& comparison, const OPTIONS& options) {
  JSON json;
  json["by"] = options.by.name();
  json["column"] = options.figure.key();
  JSON& total = json["total"];
  add_figures(total["before"] = JSON::object(), comparison.before.total, comparison.before.known);
  add_figures(total["after"] = JSON::object(), comparison.after.total, comparison.after.known);
  JSON& rows = json["rows"] = JSON::array();
  for (const CHANGE& change : comparison.changes) {
    if (options.top != 0 && rows.size() == options.top) break;
    rows.push_back(json_of(change, comparison));
  }
  out.write(text_of(json));
}

int diff(const OPTIONS& options) {
  const reports::RUN before = options.before.read();
  const reports::RUN after = options.after.read();
  if (!options.page.empty()) {
    write_differences_page(before, after, options.page);
    return SUCCEEDED;
  }
  const FIGURE figure = options.figure.figure();
  const BY by = options.by.by() == BY::LINE ? BY::LINE_OF_FUNCTION : options.by.by();
  COMPARISON comparison{
      reports::group(all_processes(before), by), reports::group(all_processes(after), by), {}};
  for (const auto& [run, groups] :
       {std::pair(&before, &comparison.before), std::pair(&after, &comparison.after)})
    if (!groups->known[figure])
      throw std::runtime_error(
          fmt::format("{}: no report has the column {}", run->path, options.figure.key()));
  comparison.changes = changes_of(comparison.before, comparison.after, figure);
  for (const auto* const run : {&before, &after}) tell_of_processes_without(*run, by);
  tell_if_all_are_zero(after, comparison.after, figure);
  OUTPUT out;
  if (options.json)
    print_json(out, comparison, options);
  else
    print_table(out, comparison, options);
  out.close();
  return SUCCEEDED;
}

}  // namespace

void add_diff(CLI::App& program, ACTION& action) {
  CLI::App& app =
      *program.add_subcommand("diff", "Show what grew, shrank, came and went between runs");
  app.footer(fmt::format("{}\n\n{}", description, footer));
  const auto options = std::make_shared<OPTIONS>();
  options->before.add_to(app, "BEFORE", "The run to compare with");
  options->after.add_to(app, "AFTER", "The run that is looked at");
  options->by.add_to(app);
  options->figure.add_to(app, "--column", "Which figure is compared");
  app.add_option("--top", options->top, "At most so many rows; 0 for all")->capture_default_str();
  app.add_flag("--bytes", options->bytes, "Exact figures, instead of 1.2M");
  app.add_flag("--full-paths", options->full_paths, "Files with their directories");
  app.add_flag("--json", options->json, "As JSON, all rows and figures");
  app.add_option("--html", options->page,
                 "Write a page to this file instead, all rows and figures");
  app.callback([options, &action] { action = [options] { return diff(*options); }; });
}

}  // namespace command
