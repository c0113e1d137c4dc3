// How the process was started: what can't be found out any more, or may be something else, when the
// run file is written.
#pragma once

#include <chrono>
#include <string_view>

#include "mem/base/bookkeeping.h"

struct MEM_RUN_START {
  MEM_BOOKKEEPING_STRING executable;  ///< path of its file
  MEM_BOOKKEEPING_STRING directory;   ///< the current one; empty when it had been removed
  MEM_BOOKKEEPING_STRING arguments;   ///< each with a null character behind it
  int parent;
  std::chrono::system_clock::time_point time;
  std::chrono::steady_clock::time_point steady_time;

  std::string_view executable_name() const {
    const std::string_view path = executable;
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: the whole path
  }
};

/// Noted once, when files go to a directory of their own; stays. Not before that.
const MEM_RUN_START& mem_note_run_start();
const MEM_RUN_START& mem_run_start();
/// Noted again in a child made by fork, whose run starts there.
void mem_note_run_start_of_child();
