// Options that several subcommands have.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/reports/row_groups.h"
#include "tools/reports/run.h"

namespace CLI {
class App;
}

namespace command {

/// A run that is named on the command line.
class RUN_ARGUMENT {
 public:
  /// The argument `name` of the subcommand, and --lenient where damage may be passed over.
  void add_to(CLI::App& app, const std::string& name, const std::string& help);
  void add_lenient_to(CLI::App& app);

  /// Tells on standard error what was left out. Throws reports::UNREADABLE.
  reports::RUN read() const { return read_from(m_path); }
  reports::RUN read_from(const std::string& path) const;

 private:
  std::string m_path;
  bool m_lenient = false;
};

/// --by, from line to tag.
class BY_OPTION {
 public:
  void add_to(CLI::App& app);
  reports::BY by() const;
  const std::string& name() const { return m_name; }

 private:
  std::string m_name = "line";
};

/// A figure, by its key.
class FIGURE_OPTION {
 public:
  void add_to(CLI::App& app, const std::string& option, const std::string& help);
  reports::FIGURE figure() const { return reports::figure_of_key(m_key).value(); }
  const std::string& key() const { return m_key; }

 private:
  std::string m_key = "peak_bytes";
};

/// All keys of figures.
std::vector<std::string> figure_keys();

/// In bytes or, for people, in units of 1024; blocks as they are.
std::string figure_text(reports::FIGURE figure, std::int64_t value, bool exact);

/// Says on standard error where a figure tells nothing and which one does: no peak is recorded of a
/// program that only ever grows.
void tell_if_all_are_zero(const reports::RUN& run, const reports::GROUPS& groups,
                          reports::FIGURE figure);

/// Says on standard error how many processes are in no row.
void tell_of_processes_without(const reports::RUN& run, reports::BY by);

/// "concordance 28800", or how many processes.
std::string name_of(const reports::RUN& run);

/// Of a row, printable: headings and cells of the columns of text that a grouping has.
std::vector<std::string> text_headings(reports::BY by);
std::vector<std::string> text_cells(const reports::GROUP& row, reports::BY by, bool full_paths);

}  // namespace command
