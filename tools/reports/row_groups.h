// Rows as people ask for them: per line, function, file, module, bin or tag, over one process or
// several.
#pragma once

#include <string_view>
#include <tuple>
#include <vector>

#include "tools/reports/run.h"

namespace reports {

enum class BY {
  LINE,              ///< one row for a source line, however many addresses, functions and modules
  LINE_OF_FUNCTION,  ///< one for each function and module that a source line is part of
  FUNCTION,
  FILE,
  MODULE,
  BIN,
  TAG,
};

/// The catch-all, of no line, function, file or module.
inline constexpr std::string_view other_name = "OTHER";

/// A file of some names stands for none.
bool is_known_file(std::string_view file);

/// What makes two places one row: module, file, function and line, those that matter. Not by bin or
/// tag.
using ROW_KEY = std::tuple<std::string_view, std::string_view, std::string_view, std::uint32_t>;
ROW_KEY row_key_of(const PLACE& place, BY by);

/// The texts are those of the run.
struct GROUP {
  /// Of a module, bin or tag, of the catch-all in every grouping; empty for the others.
  std::string_view name;
  // Of the site that holds most at the peak.
  std::string_view module;
  std::string_view file;
  std::uint32_t line = 0;
  std::string_view function;
  /// The sum; of maxima too, which need not have been reached at the same moment.
  FIGURES figures;
  std::vector<const SITE*> sites;  ///< that are summed; none for bins and tags

  bool is_of_several(std::string_view SITE::*text) const;
};

struct GROUPS {
  BY by = BY::LINE;
  KNOWN_FIGURES known;  ///< those that every process knows
  std::vector<GROUP> rows;
  FIGURES total;
};

/// Whether the process has a report of such rows.
bool tells(const PROCESS& process, BY by);

/// Throws UNREADABLE when none of the processes has a report that tells. By the order of reports.
GROUPS group(const std::vector<const PROCESS*>& processes, BY by);

std::vector<const PROCESS*> all_processes(const RUN& run);

/// Orders rows: by a figure, the highest first, or by a text.
void sort_by(std::vector<GROUP>& rows, FIGURE figure);

}  // namespace reports
