// The directory that holds everything a run writes.
#pragma once

#include <sys/types.h>

#include <string>

#include "tools/command/run/profiler_files.h"
#include "tools/command/run/run_options.h"

namespace command {

/// The base name of the program that `options` run.
std::string program_name(const RUN_OPTIONS& options);

/// Makes the directory of a run of process `pid` and returns its absolute path. Throws FAILURE
/// where that can't be made, or holds something already.
std::string make_run_directory(const RUN_OPTIONS& options, pid_t pid);

/// Writes the filters that a run uses into its directory, so that they can be read there later, and
/// returns the file's path; empty for none. Throws FAILURE when the user's file can't be read.
std::string write_filters(const RUN_OPTIONS& options, const PROFILER_FILES& files,
                          const std::string& directory);

/// Takes away what was written there for a program that could not be started.
void empty_run_directory(const RUN_OPTIONS& options, const std::string& directory);

/// How the program was started and how it ended.
struct RUN_FACTS {
  pid_t pid = 0;
  std::string start;   ///< in UTC, as 2026-01-31T12:00:00Z
  double seconds = 0;  ///< from its start to its end
  int status = -1;     ///< as waitpid tells; -1 while it runs
};

/// Writes them to `directory`/run.json, in place of what is there.
bool write_run_facts(const RUN_OPTIONS& options, const RUN_FACTS& facts,
                     const std::string& directory);

}  // namespace command
