// The file that a program's name stands for, and whether a preloaded library can profile it.
#pragma once

#include <string>

namespace command {

/// The path that would be executed for `name`, found as the shell finds it. Throws FAILURE when
/// there is none, when it may not be executed, and when what it starts would not load the profiler:
/// static, set-user-ID or of another processor. A script stands for its interpreter.
std::string find_program(const std::string& name);

}  // namespace command
