// tuk-mem export: a run in other tools' formats.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>

#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/paths/resolver.h"
#include "tools/command/pprof.h"
#include "tools/command/run_json.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"
#include "tools/reports/call_tree.h"

namespace command {

namespace {

using reports::FIGURE, reports::PROCESS, reports::RUN, reports::SITE;

constexpr char const* description =
    "Writes a run in a format that other tools read:\n"
    "  csv     a row for each allocation site of each process, all figures\n"
    "  json    everything that the reports say; docs/command.md describes it\n"
    "  folded  stacks of functions and a figure, for flame graphs; of a run without call paths\n"
    "          module;file;function:line\n"
    "  pprof   a gzip'd profile, for 'go tool pprof'";

struct OPTIONS {
  RUN_ARGUMENT run;
  std::string format;
  std::string file;
  FIGURE_OPTION figure;
  bool all_frames = false;

  reports::FRAMES frames() const {
    return all_frames ? reports::FRAMES::ALL : reports::FRAMES::FOLDED;
  }
};

void write_csv(OUTPUT& out, const RUN& run, const OPTIONS&) {
  std::string header = "process,address,module,file,line,function";
  for (const auto& column : reports::figure_columns) header.append(",").append(column.key);
  out.write(header + "\n");
  for (const PROCESS& process : run.processes) {
    const auto* const sites = process.any_sites();
    if (sites == nullptr) continue;
    for (const SITE& site : sites->rows) {
      std::string line = fmt::format(
          "{},{},{},{},{},{}", csv_cell(process.name),
          site.is_catch_all ? std::string("OTHER") : fmt::format("{:#x}", site.address),
          csv_cell(site.module), csv_cell(site.file), site.line, csv_cell(site.function));
      for (std::size_t figure = 0; figure < reports::FIGURE_COUNT; ++figure)
        line += sites->known[figure] ? fmt::format(",{}", site.figures[static_cast<FIGURE>(figure)])
                                     : ",";
      out.write(line + "\n");
    }
  }
}

void write_json(OUTPUT& out, const RUN& run, const OPTIONS&) { out.write(text_of(json_of(run))); }

// Frames end at a semicolon, the stack at its last blank.
std::string frame(std::string_view text) {
  if (text.empty()) return "??";  // or it would be its caller
  std::string result = printable(text);
  for (char& c : result)
    if (c == ';') c = ',';
  return result;
}

void write_folded_sites(OUTPUT& out, const RUN& run, const std::vector<const PROCESS*>& processes,
                        FIGURE figure) {
  const auto groups = reports::group(processes, reports::BY::LINE_OF_FUNCTION);
  if (!groups.known[figure])
    throw std::runtime_error(fmt::format("{}: no report has the column {}", run.path,
                                         reports::figure_columns[figure].key));
  tell_if_all_are_zero(run, groups, figure);
  for (const reports::GROUP& row : groups.rows) {
    if (row.figures[figure] <= 0) continue;
    const std::string stack = row.name.empty()
                                  ? fmt::format("{};{};{}:{}", frame(row.module), frame(row.file),
                                                frame(row.function), row.line)
                                  : frame(row.name);
    out.write(fmt::format("{} {}\n", stack, row.figures[figure]));
  }
}

void write_folded_stacks(OUTPUT& out, const std::vector<reports::CALL_STACKS>& processes,
                         FIGURE figure, reports::FRAMES frames) {
  if (!reports::PATH_FIGURES::known()[figure])
    throw std::runtime_error(
        fmt::format("--column: call paths have no column {}", reports::figure_columns[figure].key));
  reports::CALL_TREE_OPTIONS options;
  options.direction = reports::CALL_TREE_OPTIONS::CALLEES;
  options.by = reports::BY::FUNCTION;
  options.frames = frames;
  const auto tree = reports::CALL_TREE::build(processes, options);
  const reports::PLACES& places = processes.front().places();
  for (const auto& node : tree.nodes()) {
    if (node.own[figure] <= 0) continue;
    std::string stack;
    for (auto const* at = &node; at != tree.nodes().data(); at = &tree.nodes()[at->parent]) {
      const reports::PLACE& place = places[at->place];
      stack.insert(0, frame(place.is_catch_all ? reports::other_name : place.function) +
                          (stack.empty() ? "" : ";"));
    }
    out.write(fmt::format("{} {}\n", stack, node.own[figure]));
  }
}

void write_folded(OUTPUT& out, const RUN& run, const OPTIONS& options) {
  const FIGURE figure = options.figure.figure();
  RESOLVER resolver;
  std::vector<reports::CALL_STACKS> stacks;
  for (const auto& process : resolver.resolve(run)) stacks.push_back(process.stacks);
  std::vector<const PROCESS*> others;
  for (const PROCESS& process : run.processes)
    if (!process.call_paths) others.push_back(&process);
  if (!stacks.empty()) write_folded_stacks(out, stacks, figure, options.frames());
  if (!others.empty()) write_folded_sites(out, run, others, figure);
}

void write_profile(OUTPUT& out, const RUN& run, const OPTIONS& options) {
  std::ostringstream text;
  RESOLVER resolver;
  write_pprof(text, run, resolver, options.frames());
  out.write(text.str());
}

struct FORMAT {
  char const* name;
  void (*write)(OUTPUT& out, const RUN& run, const OPTIONS& options);
};
constexpr FORMAT formats[] = {
    {"csv", write_csv}, {"json", write_json}, {"folded", write_folded}, {"pprof", write_profile}};

int export_run(const OPTIONS& options) {
  const RUN run = options.run.read();
  if (options.format != "json") tell_of_processes_without(run, reports::BY::LINE);
  OUTPUT out(options.file);
  for (const FORMAT& format : formats)
    if (options.format == format.name) format.write(out, run, options);
  out.close();
  return SUCCEEDED;
}

}  // namespace

void add_export(CLI::App& program, ACTION& action) {
  CLI::App& app =
      *program.add_subcommand("export", "Write a run as CSV, JSON, folded stacks or for pprof");
  app.footer(description);
  const auto options = std::make_shared<OPTIONS>();
  options->run.add_to(app, "RUN", "Directory of reports, or one report file");
  std::vector<std::string> names;
  for (const FORMAT& format : formats) names.emplace_back(format.name);
  app.add_option("--to", options->format, "csv, json, folded or pprof")
      ->required()
      ->check(CLI::IsMember(names).description(""));
  app.add_option("-o,--output", options->file, "File to write; standard output without it");
  options->figure.add_to(app, "--column", "What folded stacks count");
  app.add_flag("--all-frames", options->all_frames,
               "In stacks, the frames that the profiler looks through, too");
  options->run.add_lenient_to(app);
  app.callback([options, &action] { action = [options] { return export_run(*options); }; });
}

}  // namespace command
