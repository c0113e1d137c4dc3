// tuk-mem html: a run as a page.
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/command/options.h"
#include "tools/command/page.h"
#include "tools/command/subcommand.h"

namespace command {

namespace {

constexpr char const* description =
    "Writes a run as one page that a browser opens from disk, with no network:\n"
    "the heap over time, where it is, and the table of lines. docs/page.md describes it.";

struct OPTIONS {
  RUN_ARGUMENT run;
  std::string file;
};

}  // namespace

void add_html(CLI::App& program, ACTION& action) {
  CLI::App& app = *program.add_subcommand("html", "Write a run as a page to look at");
  app.description(description);
  const auto options = std::make_shared<OPTIONS>();
  options->run.add_to(app, "RUN", "Directory of reports, or one report file");
  app.add_option("-o,--output", options->file, "File to write; standard output without it");
  options->run.add_lenient_to(app);
  app.callback([options, &action] {
    action = [options] {
      write_page(options->run.read(), options->file);
      return SUCCEEDED;
    };
  });
}

}  // namespace command
