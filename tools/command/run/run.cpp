#include "tools/command/run/run.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <utility>

#include "tools/command/failure.h"
#include "tools/command/live/profiled_process.h"
#include "tools/command/output.h"
#include "tools/command/page.h"
#include "tools/command/run/environment.h"
#include "tools/command/run/program_file.h"
#include "tools/command/run/progress.h"
#include "tools/command/run/run_directory.h"
#include "tools/command/run/summary.h"
#include "tools/command/run/supervision.h"
#include "tools/command/run/symbol_server.h"
#include "tools/reports/read_run.h"

namespace command {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

std::string now_in_utc() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)));
}

// What the program holds when it is told to end: it may end without reports.
void keep_last_snapshot(pid_t process) try {
  constexpr auto patience = 2s;
  PROFILED_PROCESS(process).take_snapshot(patience);
} catch (const FAILURE&) {  // it does not listen: it ends as it would have
}

struct ENDED_RUN {
  RUN_FACTS facts;
  std::string directory;
};

void start_program(const RUN_OPTIONS& options, const PROFILER_FILES& files,
                   const std::string& socket, const ENDED_RUN& run, SUPERVISION& supervision) try {
  const RUN_PLACES places{run.directory, write_filters(options, files, run.directory), socket};
  if (!write_run_facts(options, run.facts, run.directory))
    throw FAILURE(FAILURE::own, fmt::format("{}: can't be written to", run.directory));
  supervision.release(profiled_environment(options, files, places));
} catch (const FAILURE&) {
  empty_run_directory(options, run.directory);
  throw;
}

ENDED_RUN supervise(const RUN_OPTIONS& options, const std::string& path) {
  const PROFILER_FILES files = find_profiler_files();
  const SYMBOL_SERVER server(files.symbols);
  SUPERVISION supervision;
  ENDED_RUN run;
  run.facts.pid = supervision.fork_child(path, options.command);
  run.directory = make_run_directory(options, run.facts.pid);
  run.facts.start = now_in_utc();
  const auto start = steady_clock::now();
  start_program(options, files, server.socket(), run, supervision);
  PROGRESS progress(run.facts.pid);
  run.facts.status = supervision.wait_for_end(
      options.progress && isatty(STDERR_FILENO) != 0 ? 500ms : 0ms, [&] { progress.show(); },
      [&] { keep_last_snapshot(run.facts.pid); });
  progress.clear();
  run.facts.seconds = std::chrono::duration<double>(steady_clock::now() - start).count();
  if (!write_run_facts(options, run.facts, run.directory))
    tell(fmt::format("{}: run.json can't be written", run.directory));
  return run;
}

// A page that can't be written changes nothing in how the program ended.
void write_page_of(const std::string& directory) try {
  const std::string page = directory + "/page.html";
  write_page(reports::read_run(directory, reports::DAMAGED::KEPT), page);
  tell_as_it_is(fmt::format("  page: {}\n", page));
} catch (const std::exception& error) {
  tell(fmt::format("no page: {}", error.what()));
}

}  // namespace

void run_profiled(RUN_OPTIONS options) {
  const PROGRAM_FILE program = find_program(options.command.front());
  if (!options.children && options.only.empty()) options.only = program.executable;
  const ENDED_RUN run = supervise(options, program.path);
  std::signal(SIGPIPE, SIG_IGN);  // whether anybody reads the summary is not the program's status
  if (options.summary) show_summary(options, run.facts, run.directory);
  if (options.page) write_page_of(run.directory);
  end_like(run.facts.status);
}

}  // namespace command
