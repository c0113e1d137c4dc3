// Rows of a run with their callers below them, or functions with what they call.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/reports/call_tree.h"
#include "tools/reports/run.h"

namespace command {

class OUTPUT;

struct TREE_REQUEST {
  reports::BY by = reports::BY::LINE;
  std::string by_name;
  reports::FIGURE sort = reports::PEAK_BYTES;
  std::vector<reports::FIGURE> columns;  ///< empty for the usual ones
  std::string from;                      ///< functions whose callees are shown; empty for callers
  std::string focus, ignore, match;      ///< regular expressions; empty for any and none
  std::string bin;                       ///< empty for all
  std::size_t top = 0;                   ///< of the highest level; 0 for all
  std::optional<double> percent_limit;
  bool all_frames = false;
  bool bytes = false;
  bool full_paths = false;
  bool per_process = false;
  bool json = false;
};

/// Throws std::runtime_error where no process has call paths, or none that are asked for.
void show_tree(OUTPUT& out, const reports::RUN& run, const TREE_REQUEST& request);

}  // namespace command
