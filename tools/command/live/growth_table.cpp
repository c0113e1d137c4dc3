#include "tools/command/live/growth_table.h"

#include <fmt/core.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/command/live/proc_status.h"
#include "tools/command/live/profiled_process.h"
#include "tools/command/options.h"
#include "tools/command/output.h"
#include "tools/command/subcommand.h"
#include "tools/command/text.h"
#include "tools/command/text_table.h"
#include "tools/command/units.h"
#include "tools/reports/read_run.h"

namespace command {

namespace {

using reports::GROUP, reports::GROUPS, reports::BY;

std::string place_of(const GROUP& row) {
  return fmt::format("{}\t{}:{}\t{}\t{}", row.name, row.file, row.line, row.function, row.module);
}

struct REMOVED_AT_END {
  std::string path;
  ~REMOVED_AT_END() {
    std::error_code trouble;
    std::filesystem::remove_all(path, trouble);
  }
};

// What ends this program waits for the end of a round, which removes its snapshot.
class ENDING_SIGNALS {
 public:
  ENDING_SIGNALS() {
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&m_signals, signal);
    sigprocmask(SIG_BLOCK, &m_signals, &m_former);
  }
  /// Ends by a signal that comes meanwhile, or has come.
  void wait(unsigned seconds) const {
    const timespec time{seconds, 0};
    const int signal = sigtimedwait(&m_signals, nullptr, &time);
    if (signal < 0) return;
    raise(signal);
    sigprocmask(SIG_SETMASK, &m_former, nullptr);
    sigprocmask(SIG_BLOCK, &m_signals, nullptr);  // it is one that is ignored
  }

 private:
  sigset_t m_signals{};
  sigset_t m_former{};
};

struct ROW {
  std::int64_t growth;
  std::int64_t bytes;
  std::int64_t blocks;
  std::vector<std::string> place;
};

class GROWTH_TABLE {
 public:
  explicit GROWTH_TABLE(const TOP_OPTIONS& options)
      : m_options(options), m_process(options.process) {}

  /// False once the process has ended.
  bool show() {
    constexpr std::chrono::seconds patience{2};
    const std::optional<std::string> snapshot = m_process.take_snapshot(patience);
    if (!snapshot && !m_process.is_there()) return false;
    if (snapshot) {
      const REMOVED_AT_END removed{*snapshot};
      read(*snapshot);
    }
    print(snapshot.has_value());
    return true;
  }

 private:
  void read(const std::string& snapshot) {
    const reports::RUN run = reports::read_run(snapshot, reports::DAMAGED::KEPT);
    const GROUPS lines = group(reports::all_processes(run), BY::LINE_OF_FUNCTION);
    std::map<std::string, std::int64_t> now;
    m_rows.clear();
    for (const GROUP& row : lines.rows) {
      const std::string place = place_of(row);
      const std::int64_t bytes = row.figures[reports::CURRENT_BYTES];
      const auto former = m_former.find(place);
      const std::int64_t growth =
          m_is_first ? 0 : bytes - (former == m_former.end() ? 0 : former->second);
      now[place] = bytes;
      m_rows.push_back(
          {growth, bytes, row.figures[reports::CURRENT_BLOCKS], text_cells(row, BY::LINE, false)});
    }
    m_total = lines.total[reports::CURRENT_BYTES];
    m_former = std::move(now);
    m_is_first = false;
    std::stable_sort(m_rows.begin(), m_rows.end(), [](const ROW& a, const ROW& b) {
      return a.growth != b.growth ? a.growth > b.growth : a.bytes > b.bytes;
    });
  }

  std::size_t rows_to_show() const {
    constexpr unsigned usual = 20;
    constexpr int around_the_table = 4;
    if (m_options.rows != 0) return m_options.rows;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row <= around_the_table)
      return usual;
    return static_cast<std::size_t>(size.ws_row - around_the_table);
  }

  void print(bool is_new) {
    OUTPUT out;
    const bool on_terminal = isatty(STDOUT_FILENO) != 0;
    if (on_terminal) out.write("\033[H\033[2J");
    const PROC_STATUS status(m_options.process);
    out.write(fmt::format("{} {}   heap {}   resident {}{}\n\n", printable(status.text("Name")),
                          m_options.process, human(m_total),
                          human(static_cast<std::int64_t>(status.bytes("VmRSS"))),
                          is_new ? "" : "   (idle: figures of the last round)"));
    TEXT_TABLE table;
    for (char const* const figure : {"GROWTH", "NOW", "BLOCKS"})
      table.add_column(figure, TEXT_TABLE::COLUMN::FIGURE);
    for (std::string& heading : text_headings(BY::LINE))
      table.add_column(std::move(heading), TEXT_TABLE::COLUMN::TEXT);
    for (std::size_t i = 0; i < std::min(rows_to_show(), m_rows.size()); ++i) {
      const ROW& row = m_rows[i];
      std::vector<std::string> cells = {human_change(row.growth), human(row.bytes),
                                        std::to_string(row.blocks)};
      cells.insert(cells.end(), row.place.begin(), row.place.end());
      table.add_row(std::move(cells));
    }
    table.print(out, out.width());
    if (!on_terminal) out.write("\n");
    out.close();
  }

  TOP_OPTIONS m_options;
  PROFILED_PROCESS m_process;
  std::map<std::string, std::int64_t> m_former;
  std::vector<ROW> m_rows;
  std::int64_t m_total = 0;
  bool m_is_first = true;
};

}  // namespace

int show_growth(const TOP_OPTIONS& options) {
  GROWTH_TABLE table(options);
  const ENDING_SIGNALS signals;
  for (unsigned round = 1; table.show(); ++round) {
    if (options.rounds != 0 && round == options.rounds) break;
    signals.wait(options.seconds);
  }
  return SUCCEEDED;
}

}  // namespace command
