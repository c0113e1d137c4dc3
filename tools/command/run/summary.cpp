#include "tools/command/run/summary.h"

#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "tools/command/run/debug_packages.h"
#include "tools/command/text.h"
#include "tools/command/units.h"
#include "tools/reports/read_run.h"
#include "tools/reports/row_groups.h"

namespace command {

namespace {

using reports::GROUP;
using reports::GROUPS;
using reports::PROCESS;

void say(const std::string& line) { fmt::print(stderr, "{}\n", line); }

std::string how_it_ended(int status) {
  if (WIFSIGNALED(status)) return fmt::format("killed by SIG{}", sigabbrev_np(WTERMSIG(status)));
  return fmt::format("exit status {}", WEXITSTATUS(status));
}

const PROCESS& largest(const reports::RUN& run) {
  return *std::max_element(
      run.processes.begin(), run.processes.end(),
      [](const PROCESS& a, const PROCESS& b) { return a.highest_bytes() < b.highest_bytes(); });
}

void show_figures(const reports::RUN& run, const RUN_FACTS& facts, const GROUPS& lines) {
  const PROCESS& top = largest(run);
  std::string peak = fmt::format("peak {}", human(top.highest_bytes()));
  if (run.processes.size() > 1)
    peak += fmt::format(" in {}, the largest of {} processes", printable(top.name),
                        run.processes.size());
  say(fmt::format("  {:.1f} s   {}   {} allocations   leaked {} in {} blocks", facts.seconds, peak,
                  human(lines.total[reports::CUMULATIVE_BLOCKS]),
                  human(lines.total[reports::CURRENT_BYTES]),
                  human(lines.total[reports::CURRENT_BLOCKS])));
}

std::string place_of(const GROUP& row) {
  if (!row.name.empty()) return fmt::format("{}: frames that no rule keeps", row.name);
  const std::string function = printable(row.function);
  if (row.line == 0) return fmt::format("{}  [{}]", function, printable(row.module));
  return fmt::format("{}:{}  {}  [{}]", printable(base_name(row.file)), row.line, function,
                     printable(row.module));
}

// The processes' peaks are of different moments: the sum is what a table of a tree shows.
void show_top_lines(const GROUPS& lines, unsigned count) {
  const std::int64_t total = std::max<std::int64_t>(lines.total[reports::PEAK_BYTES], 1);
  say("  most at the peak:");
  constexpr std::size_t width = 100;
  for (std::size_t i = 0; i < std::min<std::size_t>(count, lines.rows.size()); ++i) {
    const GROUP& row = lines.rows[i];
    const std::int64_t bytes = row.figures[reports::PEAK_BYTES];
    if (bytes <= 0) return;
    say(fmt::format("  {:>8}  {:>3} %  {}", human(bytes), 100 * bytes / total,
                    shortened(place_of(row), width)));
  }
}

// Modules that hold a hundredth of the peak, or more, without lines.
void show_what_to_install(const reports::RUN& run, const GROUPS& lines) {
  std::map<std::string, std::int64_t> without_lines;
  for (const GROUP& row : lines.rows)
    if (row.line == 0 && row.name.empty())
      for (const PROCESS& process : run.processes) {
        const std::string path(process.path_of_module(row.module));
        if (path.empty()) continue;
        without_lines[path] += row.figures[reports::PEAK_BYTES];
        break;
      }
  for (const auto& [path, bytes] : without_lines)
    if (100 * bytes >= lines.total[reports::PEAK_BYTES])
      say(fmt::format("  no lines for {}: {}", printable(path), how_to_get_lines(path)));
}

void show_run(const RUN_OPTIONS& options, const RUN_FACTS& facts, const reports::RUN& run) {
  const GROUPS lines = group(reports::all_processes(run), reports::BY::LINE_OF_FUNCTION);
  show_figures(run, facts, lines);
  show_top_lines(lines, options.top);
  show_what_to_install(run, lines);
  for (const std::string& note : run.notes) say("  " + note);
}

}  // namespace

void show_summary(const RUN_OPTIONS& options, const RUN_FACTS& facts,
                  const std::string& directory) {
  say(fmt::format("tuk-mem: {}, {}", printable(program_name(options)), how_it_ended(facts.status)));
  try {
    const reports::RUN run = reports::read_run(directory, reports::DAMAGED::KEPT);
    show_run(options, facts, run);
  } catch (const std::exception& error) {
    say(fmt::format("  no figures: {}", error.what()));
  }
  say(fmt::format("  report: {}   (tuk-mem show {})", directory, base_name(directory)));
}

}  // namespace command
