// tuk-mem show: rows of a run, as a table, JSON or CSV.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <tuple>

#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/pattern.h"
#include "tools/command/run_json.h"
#include "tools/command/show_tree.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"
#include "tools/command/text_table.h"

namespace command {

namespace {

using reports::BY, reports::FIGURE, reports::GROUP, reports::GROUPS, reports::PROCESS;

constexpr char const* description =
    "Shows where memory is: one row for each source line, or function, file, module, bin or tag.\n"
    "Without --per-process the processes of a run are summed.";

constexpr char const* columns_help =
    "Columns: current_bytes (live at the end), peak_bytes (at the process's peak), max_bytes (the\n"
    "row's own maximum), cumulative_bytes (ever allocated), cumulative_requested_bytes,\n"
    "cumulative_mismatched_bytes (freed by another thread), current_blocks, max_blocks,\n"
    "peak_blocks, cumulative_blocks; in a tree also temporary_blocks (freed before their thread's\n"
    "next allocation), and no maxima. A maximum of several addresses is the sum of theirs.\n"
    "A '+' behind a name: the row is of several, and this one holds most.\n\n"
    "Examples:\n"
    "  tuk-mem show RUN --top 10                        the lines that hold most at the peak\n"
    "  tuk-mem show RUN --sort current_bytes            what is live at the end: leaks\n"
    "  tuk-mem show RUN --by module --match 'lib.*'     modules whose name matches\n"
    "  tuk-mem show RUN --csv >lines.csv\n"
    "  tuk-mem show RUN --tree --top 3                  who called the lines that hold most\n"
    "  tuk-mem show RUN --from main --by function       what main's callees hold";

// Columns of text, beside the figures.
struct TEXT_KEY {
  char const* key;
  bool (*is_before)(const GROUP& a, const GROUP& b);
};
constexpr TEXT_KEY text_keys[] = {
    {"name", [](const GROUP& a, const GROUP& b) { return a.name < b.name; }},
    {"module", [](const GROUP& a, const GROUP& b) { return a.module < b.module; }},
    {"file", [](const GROUP& a, const GROUP& b) { return a.file < b.file; }},
    {"line", [](const GROUP& a,
                const GROUP& b) { return std::tie(a.file, a.line) < std::tie(b.file, b.line); }},
    {"function", [](const GROUP& a, const GROUP& b) { return a.function < b.function; }},
};

struct OPTIONS {
  RUN_ARGUMENT run;
  BY_OPTION by;
  std::string sort = "peak_bytes";
  std::vector<std::string> columns;
  std::size_t top = 0;
  std::string match;
  bool bytes = false;
  bool full_paths = false;
  bool per_process = false;
  bool json = false;
  bool csv = false;
  bool tree = false;
  TREE_REQUEST of_tree;

  bool is_tree() const { return tree || !of_tree.from.empty(); }
  bool asks_for_tree_only() const {
    return !of_tree.focus.empty() || !of_tree.ignore.empty() || !of_tree.bin.empty() ||
           of_tree.percent_limit || of_tree.all_frames;
  }
};

bool matches(const GROUP& row, const PATTERN& pattern) {
  return pattern.is_found_in(row.name) ||
         pattern.is_found_in_place(row.module, row.function, row.file, row.line);
}

// The rows that match, in their order; the total is theirs.
GROUPS chosen_rows(const std::vector<const PROCESS*>& processes, const OPTIONS& options,
                   const PATTERN& pattern) {
  GROUPS groups = reports::group(processes, options.by.by());
  if (!options.match.empty()) {
    std::erase_if(groups.rows, [&](const GROUP& row) { return !matches(row, pattern); });
    groups.total = {};
    for (const GROUP& row : groups.rows) groups.total += row.figures;
  }
  if (const auto figure = reports::figure_of_key(options.sort))
    sort_by(groups.rows, *figure);
  else
    for (const TEXT_KEY& text : text_keys)
      if (options.sort == text.key)
        std::stable_sort(groups.rows.begin(), groups.rows.end(), text.is_before);
  return groups;
}

std::size_t shown_of(const GROUPS& groups, const OPTIONS& options) {
  return options.top == 0 ? groups.rows.size() : std::min(options.top, groups.rows.size());
}

// Those asked for, or the usual ones; the one that is sorted by is always there.
std::vector<FIGURE> shown_figures(const GROUPS& groups, const OPTIONS& options) {
  std::vector<FIGURE> figures;
  for (const std::string& key : options.columns)
    figures.push_back(reports::figure_of_key(key).value());
  if (figures.empty()) {
    figures = {reports::PEAK_BYTES, reports::CURRENT_BYTES, reports::CUMULATIVE_BYTES,
               reports::CUMULATIVE_BLOCKS};
    const auto sorted_by = reports::figure_of_key(options.sort);
    if (sorted_by && std::find(figures.begin(), figures.end(), *sorted_by) == figures.end())
      figures.insert(figures.begin(), *sorted_by);
  }
  std::erase_if(figures, [&](FIGURE figure) { return !groups.known[figure]; });
  return figures;
}

void print_table(OUTPUT& out, const GROUPS& groups, const OPTIONS& options) {
  const auto figures = shown_figures(groups, options);
  TEXT_TABLE table;
  for (const FIGURE figure : figures)
    table.add_column(std::string(reports::figure_columns[figure].heading),
                     TEXT_TABLE::COLUMN::FIGURE);
  const auto headings = text_headings(options.by.by());
  for (const std::string& heading : headings) table.add_column(heading, TEXT_TABLE::COLUMN::TEXT);

  const auto add = [&](const reports::FIGURES& values, const std::vector<std::string>& texts) {
    std::vector<std::string> cells;
    cells.reserve(figures.size() + headings.size());
    for (const FIGURE figure : figures)
      cells.push_back(figure_text(figure, values[figure], options.bytes));
    cells.insert(cells.end(), texts.begin(), texts.end());
    cells.resize(figures.size() + headings.size());
    table.add_row(std::move(cells));
  };
  const std::size_t shown = shown_of(groups, options);
  reports::FIGURES others = groups.total;
  for (std::size_t i = 0; i < shown; ++i) {
    const GROUP& row = groups.rows[i];
    add(row.figures, text_cells(row, options.by.by(), options.full_paths));
    others -= row.figures;
  }
  if (const std::size_t more = groups.rows.size() - shown; more > 0)
    add(others, {fmt::format("({} more)", more)});
  add(groups.total, {"total"});
  table.print(out, out.width());
}

void print_csv_header(OUTPUT& out, const GROUPS& groups) {
  std::string line = "process,name,module,file,line,function,sites";
  for (std::size_t figure = 0; figure < reports::FIGURE_COUNT; ++figure)
    if (groups.known[figure]) line.append(",").append(reports::figure_columns[figure].key);
  out.write(line + "\n");
}

void print_csv(OUTPUT& out, const std::string& process, const GROUPS& groups,
               const OPTIONS& options) {
  for (std::size_t i = 0; i < shown_of(groups, options); ++i) {
    const GROUP& row = groups.rows[i];
    std::string line = fmt::format("{},{},{},{},{},{},{}", csv_cell(process), csv_cell(row.name),
                                   csv_cell(row.module), csv_cell(row.file), row.line,
                                   csv_cell(row.function), row.sites.size());
    for (std::size_t figure = 0; figure < reports::FIGURE_COUNT; ++figure)
      if (groups.known[figure])
        line += fmt::format(",{}", row.figures[static_cast<FIGURE>(figure)]);
    out.write(line + "\n");
  }
}

// One table for all processes together, or one for each.
struct PART {
  std::string name;  // "" for all together
  GROUPS groups;
};

std::vector<PART> parts_of(const reports::RUN& run, const OPTIONS& options,
                           const PATTERN& pattern) {
  std::vector<PART> parts;
  if (!options.per_process) {
    parts.push_back({"", chosen_rows(all_processes(run), options, pattern)});
    return parts;
  }
  for (const PROCESS& process : run.processes)
    if (reports::tells(process, options.by.by()))
      parts.push_back({process.name, chosen_rows({&process}, options, pattern)});
  if (parts.empty()) parts.push_back({"", chosen_rows({}, options, pattern)});
  // One table in CSV: the figures that all have.
  reports::KNOWN_FIGURES known = parts.front().groups.known;
  for (const PART& part : parts) known &= part.groups.known;
  for (PART& part : parts) part.groups.known = known;
  return parts;
}

void print_json(OUTPUT& out, const reports::RUN& run, const std::vector<PART>& parts,
                const OPTIONS& options) {
  JSON json;
  json["run"] = run.path;
  json["by"] = options.by.name();
  json["sort"] = options.sort;
  JSON& tables = json["tables"] = JSON::array();
  for (const PART& part : parts)
    tables.push_back(json_of(part.name, part.groups, shown_of(part.groups, options)));
  out.write(text_of(json));
}

void print_all(OUTPUT& out, const reports::RUN& run, const std::vector<PART>& parts,
               const OPTIONS& options) {
  if (options.json) return print_json(out, run, parts, options);
  if (options.csv) print_csv_header(out, parts.front().groups);
  for (const PART& part : parts) {
    if (options.csv) {
      print_csv(out, part.name, part.groups, options);
      continue;
    }
    if (&part != &parts.front()) out.write("\n");
    out.write((part.name.empty() ? name_of(run) : printable(part.name)) + "\n");
    print_table(out, part.groups, options);
  }
}

TREE_REQUEST tree_request_of(const OPTIONS& options, FIGURE sort) {
  TREE_REQUEST request = options.of_tree;
  request.by = options.by.by();
  request.by_name = options.by.name();
  request.sort = sort;
  GROUPS known;
  known.known = reports::PATH_FIGURES::known();
  request.columns = shown_figures(known, options);
  request.match = options.match;
  request.top = options.top;
  request.bytes = options.bytes;
  request.full_paths = options.full_paths;
  request.per_process = options.per_process;
  request.json = options.json;
  return request;
}

int show_as_tree(const OPTIONS& options) {
  const auto sort = reports::figure_of_key(options.sort);
  if (!sort || !reports::PATH_FIGURES::known()[*sort])
    throw std::runtime_error(fmt::format("--sort: call paths have no column {}", options.sort));
  const BY by = options.by.by();
  if (by == BY::BIN || by == BY::TAG)
    throw std::runtime_error(fmt::format(
        "--by: call paths are not of {}s; --bin shows those of one", options.by.name()));
  const reports::RUN run = options.run.read();
  OUTPUT out;
  show_tree(out, run, tree_request_of(options, *sort));
  out.close();
  return SUCCEEDED;
}

int show(const OPTIONS& options) {
  const PATTERN pattern("--match", options.match);
  if (options.is_tree()) return show_as_tree(options);
  if (options.asks_for_tree_only())
    throw std::runtime_error(
        "--focus, --ignore, --bin, --percent-limit and --all-frames need --tree or --from");
  const reports::RUN run = options.run.read();
  tell_of_processes_without(run, options.by.by());
  OUTPUT out;
  print_all(out, run, parts_of(run, options, pattern), options);
  out.close();
  return SUCCEEDED;
}

std::vector<std::string> sort_keys() {
  std::vector<std::string> keys = figure_keys();
  for (const TEXT_KEY& text : text_keys) keys.emplace_back(text.key);
  return keys;
}

// Of a run with call paths.
void add_tree_options(CLI::App& app, OPTIONS& options, CLI::Option* csv) {
  TREE_REQUEST& request = options.of_tree;
  app.add_flag("--tree", options.tree, "Rows with their callers below ('run --call-paths')")
      ->excludes(csv);
  app.add_option("--from", request.from,
                 "Instead: functions of this whole name, as main, with what they call")
      ->type_name("REGEX")
      ->excludes(csv);
  app.add_option("--focus", request.focus, "In a tree, only stacks with a frame that matches")
      ->type_name("REGEX");
  app.add_option("--ignore", request.ignore, "In a tree, only stacks without such a frame")
      ->type_name("REGEX");
  app.add_option("--bin", request.bin, "In a tree, only what was allocated in this bin")
      ->type_name("NAME");
  app.add_option("--percent-limit", request.percent_limit,
                 "Leave out of a tree what is less of the total (1; 0 in JSON)")
      ->type_name("PERCENT")
      ->check(CLI::Range(0.0, 100.0).description(""));
  app.add_flag("--all-frames", request.all_frames,
               "In a tree, the frames that the profiler looks through, too");
}

}  // namespace

void add_show(CLI::App& program, ACTION& action) {
  CLI::App& app =
      *program.add_subcommand("show", "Show where memory is, line by line or otherwise");
  app.footer(fmt::format("{}\n\n{}", description, columns_help));
  const auto options = std::make_shared<OPTIONS>();
  options->run.add_to(app, "RUN", "Directory of reports, or one report file");
  options->by.add_to(app);
  app.add_option("--sort", options->sort, "Column that comes highest first; also name, module, ...")
      ->check(CLI::IsMember(sort_keys()).description(""))
      ->capture_default_str();
  app.add_option("--columns", options->columns, "Figures to show, with commas between")
      ->delimiter(',')
      ->check(CLI::IsMember(figure_keys()).description(""));
  app.add_option("--top", options->top, "At most so many rows; 0 for all")->capture_default_str();
  app.add_option("--match", options->match, "Only rows of whose texts one matches (RE2 syntax)");
  app.add_flag("--bytes", options->bytes, "Exact figures, instead of 1.2M");
  app.add_flag("--full-paths", options->full_paths, "Files with their directories");
  app.add_flag("--per-process", options->per_process, "A table for each process");
  auto* const json = app.add_flag("--json", options->json, "As JSON");
  auto* const csv = app.add_flag("--csv", options->csv, "As CSV, all figures")->excludes(json);
  add_tree_options(app, *options, csv);
  options->run.add_lenient_to(app);
  app.callback([options, &action] { action = [options] { return show(*options); }; });
}

}  // namespace command
