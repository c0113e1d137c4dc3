// tuk-mem check: limits for the gate of a build.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <utility>

#include "tools/command/junit.h"
#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/subcommand.h"
#include "tools/command/suppressions.h"
#include "tools/command/text.h"
#include "tools/command/text_table.h"
#include "tools/command/units.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/row_pairs.h"

namespace command {

namespace {

using reports::BY, reports::GROUP, reports::GROUPS, reports::PROCESS, reports::RUN, reports::SITE;

constexpr char const* description =
    "Holds a run against limits. Status 0: all hold; 1: one is broken, and the rows that break it\n"
    "are shown; 2: the limits can't be checked.";

constexpr char const* footer =
    "Sizes are bytes, or as 200M, 1.5G. The peak is the highest that the reports know: at the\n"
    "recorded peak, in a sample or at the end. Suppressions are lines leak:PATTERN, as the leak\n"
    "sanitizers read them: a part of a function, file or module, with *, ^ and $.\n\n"
    "Examples:\n"
    "  tuk-mem check RUN --max-peak 200M --max-leaked 0 --suppressions leaks.supp\n"
    "  tuk-mem check RUN --baseline LAST_RUN --max-growth 5% --junit result.xml";

struct OPTIONS {
  RUN_ARGUMENT run;
  std::string baseline;
  std::string max_peak;
  std::string max_leaked;
  std::string max_growth;
  std::vector<std::string> suppressions;
  std::string junit;
  std::size_t top = 10;
};

// A size, or a share of what was before.
class GROWTH_LIMIT {
 public:
  explicit GROWTH_LIMIT(const std::string& text) : m_text(text) {
    if (!text.ends_with('%')) {
      m_bytes = parse_size(text);
      return;
    }
    const char* const end = text.data() + text.size() - 1;
    const auto [rest, error] = std::from_chars(text.data(), end, m_percent);
    if (error != std::errc() || rest != end || !(m_percent >= 0))
      throw std::runtime_error(fmt::format("--max-growth: \"{}\" is no share, as 5% is", text));
  }

  bool allows(std::int64_t before, std::int64_t after) const {
    constexpr double per_cent = 100;
    const double growth = static_cast<double>(after) - static_cast<double>(before);
    const double allowed = m_text.ends_with('%')
                               ? static_cast<double>(before) * m_percent / per_cent
                               : static_cast<double>(m_bytes);
    return growth <= allowed;
  }

 private:
  std::string m_text;
  std::int64_t m_bytes = 0;
  double m_percent = 0;
};

bool has_figures(const PROCESS& process) {
  return !process.sites ||
         std::any_of(process.sites->rows.begin(), process.sites->rows.end(),
                     [](const SITE& site) { return site.figures[reports::CUMULATIVE_BYTES] != 0; });
}

// A gate that passes because nothing was measured is worse than none.
void expect_tracked(const RUN& run) {
  for (const PROCESS& process : run.processes) {
    const auto& facts = process.facts;
    if (facts ? facts->value("allocator") == "none" : !has_figures(process))
      throw reports::UNREADABLE(
          fmt::format("{}: no heap block of {} was tracked: its allocator has no hooks", run.path,
                      process.name));
    if (facts && facts->value("events_not_accounted") != "0")
      tell(fmt::format("{}: for want of memory {} events of {} are in no figure", run.path,
                       facts->value("events_not_accounted"), process.name));
  }
}

std::int64_t peak_of(const RUN& run, const PROCESS& process) {
  if (!process.sites && !process.module_bytes && !process.tag_bytes &&
      process.leak_summaries.empty())
    throw reports::UNREADABLE(fmt::format(
        "{}: no report tells the peak of {}: profile with KORVANE_MEM_PROFILE_PER_FILELINE=1",
        run.path, process.name));
  return process.highest_bytes();
}

std::int64_t peak_of(const RUN& run) {
  std::int64_t sum = 0;
  for (const PROCESS& process : run.processes)
    sum = reports::wrapping_sum(sum, peak_of(run, process));
  return sum;
}

// The text of a table of rows with one figure.
class ROW_LIST {
 public:
  static constexpr std::size_t longest_cell = 160;

  explicit ROW_LIST(std::size_t top) : m_top(top) {}

  void add(const std::string& figure, const GROUP& row) {
    if (m_top != 0 && m_shown == m_top) {
      ++m_more;
      return;
    }
    ++m_shown;
    m_text += fmt::format("  {:>8}", figure);
    for (const std::string& cell : text_cells(row, BY::LINE, true))
      if (!cell.empty()) m_text.append("  ").append(shortened(cell, longest_cell));
    m_text += '\n';
  }
  std::string text() const {
    return m_more == 0 ? m_text : m_text + fmt::format("  and {} more\n", m_more);
  }

 private:
  std::size_t m_top;
  std::size_t m_shown = 0;
  std::size_t m_more = 0;
  std::string m_text;
};

std::string rows_at_peak(const PROCESS& process, std::size_t top) {
  ROW_LIST list(top);
  if (!process.sites) return {};
  GROUPS groups = reports::group({&process}, BY::LINE);
  const reports::FIGURE figure = reports::highest_of(groups.total);
  sort_by(groups.rows, figure);
  for (const GROUP& row : groups.rows)
    if (row.figures[figure] > 0) list.add(human(row.figures[figure]), row);
  return list.text();
}

// By the program and which one of its processes it is: its number is another one in each run.
std::string lasting_name(const PROCESS& process, std::map<std::string, unsigned>& seen) {
  std::string name = process.name;
  if (process.facts)
    if (const std::string number = ' ' + process.facts->value("pid"); name.ends_with(number))
      name.resize(name.size() - number.size());
  const unsigned count = ++seen[name];
  return count == 1 ? name : fmt::format("{} ({})", name, count);
}

// Each process by itself: their peaks are of different moments.
void check_peaks(const RUN& run, const OPTIONS& options, std::vector<CHECK_RESULT>& results) {
  const std::int64_t limit = parse_size(options.max_peak);
  std::map<std::string, unsigned> seen;
  for (const PROCESS& process : run.processes) {
    const std::int64_t peak = peak_of(run, process);
    const bool is_broken = peak > limit;
    results.push_back(
        {"peak of " + process.name, "peak of " + lasting_name(process, seen), is_broken,
         fmt::format("{} ({} bytes), {} allowed", human(peak), peak, options.max_peak),
         is_broken ? rows_at_peak(process, options.top) : ""});
  }
}

// What is live and no suppression's.
PROCESS leaks_of(const PROCESS& process, SUPPRESSIONS& suppressions) {
  PROCESS result;
  const auto& all = *process.any_sites();
  auto& leaks = result.sites.emplace();
  leaks.known = all.known;
  for (const SITE& site : all.rows) {
    if (!site.is_live()) continue;
    SUPPRESSIONS::ROW* const row = suppressions.match(
        {site.function, site.file, site.module, process.path_of_module(site.module)});
    if (row == nullptr) {
      leaks.rows.push_back(site);
      continue;
    }
    row->bytes += site.figures[reports::CURRENT_BYTES];
    row->blocks += site.figures[reports::CURRENT_BLOCKS];
  }
  return result;
}

void tell_if_running(const RUN& run, const PROCESS& process) {
  if (process.is_snapshot || (process.facts && process.facts->value("ended") == "not yet"))
    tell(fmt::format("{}: {} is a snapshot: what was live then counts as leaked", run.path,
                     process.name));
}

// All processes together.
void check_leaks(const RUN& run, const OPTIONS& options, SUPPRESSIONS& suppressions,
                 std::vector<CHECK_RESULT>& results) {
  const std::int64_t limit = parse_size(options.max_leaked);
  std::vector<PROCESS> leaks;
  std::int64_t leaked = 0;
  ROW_LIST list(options.top);
  for (const PROCESS& process : run.processes) {
    tell_if_running(run, process);
    if (process.any_sites() != nullptr) {
      leaks.push_back(leaks_of(process, suppressions));
      continue;
    }
    if (process.leak_summaries.empty())
      throw reports::UNREADABLE(
          fmt::format("{}: no report tells what {} leaked: profile with KORVANE_MEM_CHECK_LEAKS=1",
                      run.path, process.name));
    for (const auto& summary : process.leak_summaries) {
      leaked = reports::wrapping_sum(leaked, std::max<std::int64_t>(summary.leaked_bytes, 0));
      GROUP row;
      row.name = summary.name;
      if (summary.leaked_bytes > 0) list.add(human(summary.leaked_bytes), row);
    }
  }
  if (!leaks.empty()) {
    std::vector<const PROCESS*> processes;
    processes.reserve(leaks.size());
    for (const PROCESS& process : leaks) processes.push_back(&process);
    GROUPS groups = reports::group(processes, BY::LINE);
    leaked = reports::wrapping_sum(leaked, groups.total[reports::CURRENT_BYTES]);
    sort_by(groups.rows, reports::CURRENT_BYTES);
    for (const GROUP& row : groups.rows) list.add(human(row.figures[reports::CURRENT_BYTES]), row);
  }
  const bool is_broken = leaked > limit;
  results.push_back(
      {"leaked", "leaked", is_broken,
       fmt::format("{} ({} bytes), {} allowed", human(leaked), leaked, options.max_leaked),
       is_broken ? list.text() : ""});
}

std::string rows_that_grew(const RUN& before, const RUN& after, std::size_t top) {
  const GROUPS old_rows = reports::group(all_processes(before), BY::LINE_OF_FUNCTION);
  const GROUPS new_rows = reports::group(all_processes(after), BY::LINE_OF_FUNCTION);
  std::vector<std::pair<std::int64_t, const GROUP*>> grown;
  for (const auto& rows : pair_rows(old_rows, new_rows)) {
    if (rows.after == nullptr) continue;
    const std::int64_t now = rows.after->figures[reports::PEAK_BYTES];
    const std::int64_t then =
        rows.before == nullptr ? 0 : rows.before->figures[reports::PEAK_BYTES];
    if (now > then) grown.emplace_back(reports::wrapping_difference(now, then), rows.after);
  }
  std::stable_sort(grown.begin(), grown.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  ROW_LIST list(top);
  for (const auto& [growth, row] : grown) list.add(human_change(growth), *row);
  return list.text();
}

void check_growth(const RUN& run, const OPTIONS& options, std::vector<CHECK_RESULT>& results) {
  const GROWTH_LIMIT limit(options.max_growth);
  const RUN baseline = options.run.read_from(options.baseline);
  expect_tracked(baseline);
  const std::int64_t before = peak_of(baseline);
  const std::int64_t after = peak_of(run);
  const bool is_broken = !limit.allows(before, after);
  const bool has_rows = is_broken && reports::tells(baseline.processes.front(), BY::LINE) &&
                        reports::tells(run.processes.front(), BY::LINE);
  results.push_back({"growth of the peak", "growth of the peak", is_broken,
                     fmt::format("{} ({} bytes) after {} ({} bytes), {} more allowed", human(after),
                                 after, human(before), before, options.max_growth),
                     has_rows ? rows_that_grew(baseline, run, options.top) : ""});
}

void print(OUTPUT& out, const std::vector<CHECK_RESULT>& results,
           const SUPPRESSIONS& suppressions) {
  for (const CHECK_RESULT& result : results)
    out.write(fmt::format("{}: {}: {}\n{}", result.is_broken ? "BROKEN" : "holds",
                          printable(result.name), result.sentence, result.rows));
  for (const auto& row : suppressions.rows())
    if (row.blocks > 0)
      out.write(fmt::format("suppressed: {} in {} blocks by leak:{}\n", human(row.bytes),
                            row.blocks, printable(row.pattern)));
}

void expect_sensible(const OPTIONS& options) {
  if (options.max_peak.empty() && options.max_leaked.empty() && options.max_growth.empty())
    throw std::runtime_error("check needs a limit: --max-peak, --max-leaked or --max-growth");
  if (options.max_growth.empty() != options.baseline.empty())
    throw std::runtime_error("--max-growth and --baseline need each other");
}

int check(const OPTIONS& options) {
  expect_sensible(options);
  SUPPRESSIONS suppressions;
  for (const std::string& file : options.suppressions) suppressions.read(file);
  const RUN run = options.run.read();
  expect_tracked(run);
  std::vector<CHECK_RESULT> results;
  if (!options.max_peak.empty()) check_peaks(run, options, results);
  if (!options.max_leaked.empty()) check_leaks(run, options, suppressions, results);
  if (!options.max_growth.empty()) check_growth(run, options, results);

  if (!options.junit.empty()) {
    OUTPUT junit(options.junit);
    junit.write(junit_of(run.path, results));
    junit.close();
  }
  OUTPUT out;
  print(out, results, suppressions);
  out.close();
  const bool is_broken = std::any_of(results.begin(), results.end(),
                                     [](const CHECK_RESULT& result) { return result.is_broken; });
  return is_broken ? BROKEN_LIMIT : SUCCEEDED;
}

}  // namespace

void add_check(CLI::App& program, ACTION& action) {
  CLI::App& app = *program.add_subcommand("check", "Hold a run against limits");
  app.footer(fmt::format("{}\n\n{}", description, footer));
  const auto options = std::make_shared<OPTIONS>();
  options->run.add_to(app, "RUN", "Directory of reports, or one report file");
  app.add_option("--max-peak", options->max_peak, "The most that each process may hold");
  app.add_option("--max-leaked", options->max_leaked, "The most that may be live at the end");
  app.add_option("--baseline", options->baseline, "An earlier run, for --max-growth");
  app.add_option("--max-growth", options->max_growth,
                 "How much higher the peak may be than in the baseline: 5%, or a size");
  app.add_option("--suppressions", options->suppressions, "File of leaks that are known")
      ->allow_extra_args(false);
  app.add_option("--junit", options->junit, "Write the result for a build server");
  app.add_option("--top", options->top, "At most so many rows for each limit; 0 for all")
      ->capture_default_str();
  app.callback([options, &action] { action = [options] { return check(*options); }; });
}

}  // namespace command
