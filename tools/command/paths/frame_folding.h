// Which frames say nothing about who asked for memory, as the profiler that ran knew it.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/reports/run.h"

namespace command {

/// The profiler's own rules, and those of the files that the runs were given.
class FRAME_FOLDING {
 public:
  /// The filters that the process ran with. A file that can't be read is told of, once.
  void add_filters_of(const reports::PROCESS& process);
  bool is_folded(const reports::PLACE& place) const;

 private:
  void read(const std::string& path);

  std::set<std::string> m_read;  // files
  std::vector<std::string> m_modules, m_functions, m_files;
};

}  // namespace command
