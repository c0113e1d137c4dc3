#include "mem/state/tracker_state.h"

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/state/thread_flags.h"

constinit bool mem_tbb_tracker_inited = false;
constinit bool mem_tbb_tracking_ended = false;
constinit std::string* mem_tbb_exe_string = nullptr;

void mem_set_tbb_exe_string(char const* exe_string) {
  mem_check(exe_string != nullptr, "exe_string != nullptr");
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  *mem_tbb_exe_string = exe_string;
}

char const* mem_get_tbb_exe_string() {
  return mem_tbb_exe_string == nullptr ? "" : mem_tbb_exe_string->c_str();
}
