#include "mem/bins/user_memory_tracker.h"

#include "include/tuk_mem.h"

constinit bool MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = false;
constinit bool MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = false;

bool mem_get_tbb_memory_tracking_enabled() {
  return MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory;
}
