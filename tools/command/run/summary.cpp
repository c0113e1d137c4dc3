#include "tools/command/run/summary.h"

#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <numeric>
#include <vector>

#include "tools/command/live/profiled_process.h"
#include "tools/command/output.h"
#include "tools/command/run/debug_packages.h"
#include "tools/command/run/environment.h"
#include "tools/command/text.h"
#include "tools/command/units.h"
#include "tools/reports/read_run.h"
#include "tools/reports/row_groups.h"

namespace command {

namespace {

using reports::GROUP;
using reports::GROUPS;
using reports::PROCESS;

void say(const std::string& line) { tell_as_it_is(line + '\n'); }

std::string how_it_ended(int status) {
  if (!WIFSIGNALED(status)) return fmt::format("exit status {}", WEXITSTATUS(status));
  const int signal = WTERMSIG(status);
  char const* const name = sigabbrev_np(signal);
  if (name == nullptr) return fmt::format("killed by signal {}", signal);  // a real-time one
  return fmt::format("killed by SIG{}", name);
}

const PROCESS& largest(const reports::RUN& run) {
  return *std::max_element(
      run.processes.begin(), run.processes.end(),
      [](const PROCESS& a, const PROCESS& b) { return a.highest_bytes() < b.highest_bytes(); });
}

reports::FIGURES live_in(const reports::RUN& run) {
  reports::FIGURES sum;
  for (const PROCESS& process : run.processes)
    if (const auto* const sites = process.any_sites())
      for (const reports::SITE& site : sites->rows)
        if (site.is_live()) sum += site.figures;
  return sum;
}

void show_figures(const reports::RUN& run, const RUN_FACTS& facts, const GROUPS& lines) {
  const PROCESS& top = largest(run);
  std::string peak = fmt::format("peak {}", human(top.highest_bytes()));
  if (run.processes.size() > 1)
    peak += fmt::format(" in {}, the largest of {} processes", printable(top.name),
                        run.processes.size());
  const reports::FIGURES leaked = live_in(run);
  say(fmt::format("  {:.1f} s   {}   {} allocations   leaked {} in {} blocks", facts.seconds, peak,
                  lines.total[reports::CUMULATIVE_BLOCKS], human(leaked[reports::CURRENT_BYTES]),
                  leaked[reports::CURRENT_BLOCKS]));
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
  const reports::FIGURE figure = reports::highest_of(lines.total);
  std::vector<GROUP> rows = lines.rows;
  std::erase_if(rows, [figure](const GROUP& row) { return row.figures[figure] <= 0; });
  if (count == 0 || rows.empty()) return;
  sort_by(rows, figure);
  const auto sum = [figure](std::int64_t former, const GROUP& row) {
    return reports::wrapping_sum(former, row.figures[figure]);
  };
  const std::int64_t total =
      std::max<std::int64_t>(std::accumulate(rows.begin(), rows.end(), std::int64_t{0}, sum), 1);
  say(figure == reports::PEAK_BYTES ? "  most at the peak:" : "  most at the end:");
  constexpr std::size_t width = 100;
  for (std::size_t i = 0; i < std::min<std::size_t>(count, rows.size()); ++i) {
    const GROUP& row = rows[i];
    const std::int64_t bytes = row.figures[figure];
    say(fmt::format("  {:>8}  {:>3} %  {}", human(bytes), 100 * bytes / total,
                    shortened(place_of(row), width)));
  }
}

// Modules that hold a hundredth of all or more, without lines.
void show_what_to_install(const reports::RUN& run, const GROUPS& lines) {
  const reports::FIGURE figure = reports::highest_of(lines.total);
  std::map<std::string, std::int64_t> without_lines;
  for (const GROUP& row : lines.rows)
    if (row.line == 0 && row.name.empty())
      for (const PROCESS& process : run.processes) {
        const std::string path(process.path_of_module(row.module));
        if (path.empty()) continue;
        without_lines[path] += row.figures[figure];
        break;
      }
  for (const auto& [path, bytes] : without_lines)
    if (100 * bytes >= lines.total[figure])
      say(fmt::format("  no lines for {}: {}", printable(path), how_to_get_lines(path)));
}

void show_run(const RUN_OPTIONS& options, const RUN_FACTS& facts, const reports::RUN& run) {
  const GROUPS lines = group(reports::all_processes(run), reports::BY::LINE_OF_FUNCTION);
  show_figures(run, facts, lines);
  show_top_lines(lines, options.top);
  show_what_to_install(run, lines);
  for (const std::string& note : run.notes) say("  " + printable(note));
}

// As the user would type it, where a terminal can show it at all.
std::string hint(const std::string& name) {
  if (printable(name) != name) return {};
  constexpr std::string_view plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+:,@%=-";
  if (name.find_first_not_of(plain) == std::string::npos)
    return fmt::format("   (tuk-mem show {})", name);
  std::string quoted;
  for (const char c : name) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return fmt::format("   (tuk-mem show '{}')", quoted);
}

// Of a process that was asked for a snapshot and wrote none, the note of the question alone is
// left.
bool has_reports(const std::string& directory) {
  std::error_code trouble;
  for (const auto& folder : std::filesystem::directory_iterator(directory, trouble))
    for (const auto& entry : std::filesystem::directory_iterator(folder.path(), trouble))
      if (entry.path().extension() != ".requested") return true;
  return false;
}

std::string why_there_are_none(const RUN_OPTIONS& options, int status) {
  if (!options.only.empty())
    return fmt::format("no program of the name {} ended in order", printable(options.only));
  return fmt::format(
      "a program that ends by {} writes none; --snapshot-every SECONDS keeps what it "
      "held",
      WIFSIGNALED(status) ? "a signal" : "_exit, or is executed without this environment,");
}

// Daemons, for instance.
bool show_what_still_runs(const std::string& directory) {
  const std::vector<std::string> running =
      processes_with("KORVANE_MEM_REPORT_DIRECTORY", report_directory(directory));
  constexpr std::size_t enough = 3;
  if (running.empty()) return false;
  std::string names;
  for (std::size_t i = 0; i < std::min(enough, running.size()); ++i)
    names.append(names.empty() ? "" : ", ").append(printable(running[i]));
  if (running.size() > enough) names += fmt::format(" and {} more", running.size() - enough);
  say(fmt::format("  still running, without reports of its end: {}", names));
  return true;
}

void show_figures_or_why_not(const RUN_OPTIONS& options, const RUN_FACTS& facts,
                             const std::string& directory) try {
  show_run(options, facts, reports::read_run(directory, reports::DAMAGED::KEPT));
} catch (const std::exception& error) {
  say(fmt::format("  no figures: {}", printable(error.what())));
}

// Where the reports are, when there are some or will be.
void show_what_is_in(const std::string& directory, const RUN_OPTIONS& options,
                     const RUN_FACTS& facts) {
  const bool has_some = has_reports(directory);
  if (has_some)
    show_figures_or_why_not(options, facts, directory);
  else
    say("  no reports: " + why_there_are_none(options, facts.status));
  if (!show_what_still_runs(directory) && !has_some) return;
  say(fmt::format(
      "  report: {}{}", printable(directory),
      hint(options.directory.empty() ? std::string(base_name(directory)) : options.directory)));
}

}  // namespace

void show_summary(const RUN_OPTIONS& options, const RUN_FACTS& facts,
                  const std::string& directory) try {
  say(fmt::format("tuk-mem: {}, {}", printable(program_name(options)), how_it_ended(facts.status)));
  if (std::filesystem::exists(directory))
    show_what_is_in(directory, options, facts);
  else
    say(fmt::format("  no reports: {} is not there any more", printable(directory)));
} catch (const std::filesystem::filesystem_error& error) {
  say(fmt::format("  no reports: {}", printable(error.what())));
}

}  // namespace command
