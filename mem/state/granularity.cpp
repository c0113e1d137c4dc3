#include "mem/state/granularity.h"

#include "mem/base/static_spin_mutex.h"

constinit std::atomic<std::uint32_t> mem_tracking_granularity{MEM_TRACK_NONE};

namespace {
constinit MEM_STATIC_SPIN_MUTEX granularity_lock_storage;
}
constinit tbb::spin_mutex& mem_granularity_lock = granularity_lock_storage.mutex;

constinit bool mem_tracking_fileline_env_set = false;
constinit bool mem_tracking_library_env_set = false;
constinit bool mem_tracking_per_bin_detailed_env_set = false;
constinit bool mem_tracking_auxiliary_timeline_env_set = false;

void mem_forget_requested_reports() {
  mem_tracking_fileline_env_set = false;
  mem_tracking_library_env_set = false;
  mem_tracking_per_bin_detailed_env_set = false;
  mem_tracking_auxiliary_timeline_env_set = false;
}

bool mem_tracking_is_enabled(MEM_TRACKING_GRANULARITY bits) {
  return (mem_tracking_granularity & bits) == bits;
}

bool mem_get_tbb_track_alloc_dealloc() { return mem_tracking_is_enabled(MEM_TRACK_PER_BIN); }
