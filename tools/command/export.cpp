// tuk-mem export: a run in other tools' formats.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>

#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/pprof.h"
#include "tools/command/run_json.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"

namespace command {

namespace {

using reports::FIGURE, reports::PROCESS, reports::RUN, reports::SITE;

constexpr char const* description =
    "Writes a run in a format that other tools read:\n"
    "  csv     a row for each allocation site of each process, all figures\n"
    "  json    everything that the reports say; docs/command.md describes it\n"
    "  folded  module;file;function:line and a figure, for flame graphs\n"
    "  pprof   a gzip'd profile, for 'go tool pprof'";

struct OPTIONS {
  RUN_ARGUMENT run;
  std::string format;
  std::string file;
  FIGURE_OPTION figure;
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
  std::string result = printable(text);
  for (char& c : result)
    if (c == ';') c = ',';
  return result;
}

void write_folded(OUTPUT& out, const RUN& run, const OPTIONS& options) {
  const FIGURE figure = options.figure.figure();
  const auto groups = reports::group(all_processes(run), reports::BY::LINE_OF_FUNCTION);
  if (!groups.known[figure])
    throw std::runtime_error(
        fmt::format("{}: no report has the column {}", run.path, options.figure.key()));
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

void write_profile(OUTPUT& out, const RUN& run, const OPTIONS&) {
  std::ostringstream text;
  write_pprof(text, run);
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
  options->run.add_lenient_to(app);
  app.callback([options, &action] { action = [options] { return export_run(*options); }; });
}

}  // namespace command
