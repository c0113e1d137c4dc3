#include "mem/state/granularity.h"

constinit std::atomic<std::uint32_t> mem_tracking_granularity{MEM_TRACK_NONE};

constinit MEM_GRANULARITY_LOCK mem_granularity_lock;

constinit std::atomic<bool> mem_tracking_fileline_env_set = false;
constinit std::atomic<bool> mem_tracking_library_env_set = false;
constinit std::atomic<bool> mem_tracking_per_bin_detailed_env_set = false;
constinit std::atomic<bool> mem_tracking_auxiliary_timeline_env_set = false;
constinit std::atomic<bool> mem_tracking_call_paths_env_set = false;

void mem_forget_requested_reports() {
  for (std::atomic<bool>* const requested : mem_requested_reports) *requested = false;
}

bool mem_tracking_is_enabled(MEM_TRACKING_GRANULARITY bits) {
  return (mem_tracking_granularity & bits) == bits;
}

bool mem_get_tbb_track_alloc_dealloc() { return mem_tracking_is_enabled(MEM_TRACK_PER_BIN); }

namespace {

// The allocator's list of hooks may be locked by a thread that is gone: the hooks stay there, and
// find that nothing is tracked.
void abandon() {
  mem_tracking_granularity = MEM_TRACK_NONE;
  mem_forget_requested_reports();
  mem_granularity_lock.abandon();
}

}  // namespace

constinit const MEM_PART mem_granularity_part(
    MEM_CREATE{mem_nothing},  // the start switches tracking on, once all is there
    MEM_RESET{mem_nothing},   // tracking goes on
    MEM_FREE{mem_nothing},    // the shutdown has switched it off
    MEM_ABANDON{abandon});
