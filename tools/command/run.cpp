// tuk-mem run: a program under the profiler, and what it held.
#include <CLI/CLI.hpp>
#include <map>
#include <memory>

#include "tools/command/run/run.h"
#include "tools/command/subcommand.h"
#include "tools/command/units.h"

namespace command {

namespace {

constexpr char const* description =
    "Runs PROGRAM [ARGUMENTS] under the profiler, and tells at its end which lines held most.\n"
    "Its input, output, signals and exit status are its own.";

constexpr char const* footer =
    "Status: the program's own; 125 when tuk-mem itself fails, 126 when the program can't be run "
    "or\n"
    "profiled, 127 when it is not found.\n\n"
    "Examples:\n"
    "  tuk-mem run -- ./server --port 8080\n"
    "  tuk-mem run -o before -- make -j4      every program that make starts, too\n"
    "  tuk-mem run --only cc1plus -- make     the compiler proper alone";

void add_tracking(CLI::App& app, RUN_OPTIONS& options) {
  app.add_flag("--lines,!--no-lines", options.lines, "Figures per line of code (on)");
  app.add_flag("--modules,!--no-modules", options.modules,
               "Figures per module, and their timeline (on)");
  app.add_flag("--leaks,!--no-leaks", options.leaks, "The report of what is never freed (on)");
  app.add_flag("--process,!--no-process", options.process,
               "The process's own figures over time (on)");
  app.add_flag("--bins,!--no-bins", options.bins, "Figures per phase that the program tells (on)");
  auto* const paths = app.add_flag("--call-paths", options.call_paths,
                                   "Figures per stack, for 'show --tree' and flame graphs");
  app.add_option("--call-path-depth", options.call_path_depth, "Frames kept of a stack (64)")
      ->type_name("FRAMES")
      ->check(CLI::Range(1, 250).description(""))
      ->needs(paths);
  app.add_flag("--call-paths-per-bin", options.call_paths_per_bin,
               "Tell the stacks of one phase from those of others")
      ->needs(paths);
}

void add_periods(CLI::App& app, RUN_OPTIONS& options) {
  app.add_option("--sample-every", options.sample_every, "Events between two samples (131072)")
      ->type_name("EVENTS")
      ->check(CLI::PositiveNumber);
  app.add_option_function<std::string>(
         "--peak-step",
         [&options](const std::string& text) {
           options.peak_step = static_cast<std::uint64_t>(parse_size(text));
         },
         "Growth from which the lines of a new peak are recorded (1M)")
      ->type_name("BYTES");
  app.add_option("--snapshot-every", options.snapshot_every,
                 "Seconds between two sets of reports while the program runs")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
  app.add_option("--snapshot-signal", options.snapshot_signal,
                 "The signal that asks for such a set (RTMIN+13)")
      ->type_name("SIGNAL");
}

void add_what_to_profile(CLI::App& app, RUN_OPTIONS& options) {
  static const std::map<std::string, ALLOCATOR> allocators = {{"auto", ALLOCATOR::automatic},
                                                              {"adapter", ALLOCATOR::adapter},
                                                              {"tcmalloc", ALLOCATOR::tcmalloc}};
  app.add_option("--allocator", options.allocator,
                 "auto and adapter: the program's own; tcmalloc: that one instead")
      ->transform(CLI::CheckedTransformer(allocators).description(""))
      ->type_name("auto|adapter|tcmalloc");
  app.add_option("--only", options.only, "The one executable to profile, by its base name")
      ->type_name("EXE");
  app.add_flag("!--no-children", options.children,
               "Leave out what the program starts; what is executed from the same file is not");
  app.add_option("--filters", options.filters, "A file of frames to look through, too")
      ->type_name("FILE");
  app.add_flag("!--no-runtime-filters", options.runtime_filters,
               "Don't look through the frames of language runtimes");
}

void add_output(CLI::App& app, RUN_OPTIONS& options) {
  app.add_option("-o,--output", options.directory,
                 "The directory of the reports (tuk-mem.PROGRAM.PID)")
      ->type_name("DIRECTORY");
  app.add_flag("--html", options.page, "Write page.html into the directory, too");
  app.add_flag("--progress", options.progress,
               "On a terminal, show time, resident size, heap and stacks while it runs");
  app.add_flag("!--no-summary", options.summary, "Say nothing at the end");
  app.add_option("--top", options.top, "Lines in the summary (10)")->type_name("N");
}

}  // namespace

void add_run(CLI::App& program, ACTION& action) {
  CLI::App& app = *program.add_subcommand("run", description);
  app.footer(footer);
  const auto options = std::make_shared<RUN_OPTIONS>();
  add_output(app, *options);
  add_what_to_profile(app, *options);
  add_tracking(app, *options);
  add_periods(app, *options);
  app.add_option("PROGRAM", options->command, "The program and its arguments")->required();
  app.positionals_at_end();
  app.callback([&action, options] { action = [options]() -> int { run_profiled(*options); }; });
}

}  // namespace command
