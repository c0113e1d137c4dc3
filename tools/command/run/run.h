// A program, run under the profiler.
#pragma once

#include "tools/command/run/run_options.h"

namespace command {

/// Runs the program, shows the summary on standard error, and ends as the program did. Throws
/// TROUBLE when it can't be run.
[[noreturn]] void run_profiled(RUN_OPTIONS options);

}  // namespace command
