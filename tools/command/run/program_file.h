// The file that a program's name stands for, and whether a preloaded library can profile it.
#pragma once

#include <string>

namespace command {

struct PROGRAM_FILE {
  std::string path;        ///< what is executed
  std::string executable;  ///< the base name of what then runs: links followed, of a script its
                           ///< interpreter
};

/// What would be executed for `name`, found as the shell finds it. Throws FAILURE when there is
/// nothing, when it may not be executed, and when what it starts would not load the profiler:
/// static, set-user-ID or of another processor. A script stands for its interpreter.
PROGRAM_FILE find_program(const std::string& name);

}  // namespace command
