// The environment of a profiled program.
#pragma once

#include <string>
#include <vector>

#include "tools/command/run/profiler_files.h"
#include "tools/command/run/run_options.h"

namespace command {

/// What a run has made before the program starts.
struct RUN_PLACES {
  std::string directory;  ///< of the whole run, absolute
  std::string filters;    ///< the file of frames to look through; empty for none
  std::string socket;     ///< the symbol server's; empty for none
};

/// What KORVANE_MEM_REPORT_DIRECTORY says in a run in that directory.
std::string report_directory(const std::string& directory);

/// The environment of this process, as NAME=VALUE, with everything that profiles a program as
/// `options` ask. What the user has preloaded stays, behind. Throws FAILURE.
std::vector<std::string> profiled_environment(const RUN_OPTIONS& options,
                                              const PROFILER_FILES& files,
                                              const RUN_PLACES& places);

}  // namespace command
