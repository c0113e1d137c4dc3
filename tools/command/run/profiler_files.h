// Where the profiler's own files are: beside this command, in the build tree or installed.
#pragma once

#include <string>

namespace command {

/// What is preloaded in front of the program's own libraries.
struct PROFILER_FILES {
  std::string library;
  std::string malloc;   ///< the hooks over any allocator
  std::string symbols;  ///< the symbol server; empty where it is not installed
  std::string filters;  ///< frames nobody means; empty where it is not installed
};

/// Throws FAILURE when the library or its hooks are missing.
PROFILER_FILES find_profiler_files();

/// The shared library of an allocator that has hooks, by its full path. Throws FAILURE when it is
/// not installed.
std::string find_hooked_allocator();

}  // namespace command
