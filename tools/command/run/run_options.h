// What a run is asked for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace command {

enum class ALLOCATOR { automatic, adapter, tcmalloc };

struct RUN_OPTIONS {
  std::vector<std::string> command;  ///< the program and its arguments
  std::string directory;             ///< empty: tuk-mem.PROGRAM.PID here
  ALLOCATOR allocator = ALLOCATOR::automatic;

  bool lines = true;
  bool modules = true;
  bool leaks = true;
  bool process = true;  ///< the process's own figures over time
  bool bins = true;
  bool call_paths = false;
  unsigned call_path_depth = 0;  ///< frames kept of a stack; 0: the library's default
  bool call_paths_per_bin = false;

  std::string only;      ///< the base name of the one executable to profile; empty: all
  bool children = true;  ///< profile what the program starts, too
  std::string filters;   ///< a filter file besides the installed one
  bool runtime_filters = true;

  std::uint64_t sample_every = 0;  ///< events between two samples; 0: the library's default
  std::uint64_t peak_step = 1U << 20;
  unsigned snapshot_every = 0;  ///< seconds; 0: never
  std::string snapshot_signal = "RTMIN+13";

  bool progress = false;
  bool summary = true;
  bool page = false;  ///< write page.html at the end
  unsigned top = 10;
};

}  // namespace command
