// The brackets that the host puts around its work.
#include "include/tuk_mem.h"
#include "mem/bins/user_memory_tracker.h"

void mem_open_profile_bin(const std::string& name, const std::string& tag) {
  const MEM_USER_MEMORY_TRACKER::IN_USE in_use;
  if (MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory)
    MEM_USER_MEMORY_TRACKER::get_instance()->open_profile_bin(tag);
  if (MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed)
    MEM_USER_MEMORY_TRACKER::get_instance()->open_profile_bin_detailed(name, tag);
}

void mem_close_profile_bin(const std::string& tag, std::uint64_t* start_bytes,
                           std::uint64_t* end_bytes, std::uint64_t* peak_bytes) {
  const MEM_USER_MEMORY_TRACKER::IN_USE in_use;
  if (MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory)
    MEM_USER_MEMORY_TRACKER::get_instance()->close_profile_bin(tag, start_bytes, end_bytes,
                                                               peak_bytes);
  else
    *start_bytes = *end_bytes = *peak_bytes = 0;
  if (MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed)
    MEM_USER_MEMORY_TRACKER::get_instance()->close_profile_bin_detailed(tag);
}

bool mem_get_tbb_memory_tracking_enabled() {
  return MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory;
}
