// Switching kinds of tracking on and off while the process runs.
#include "include/tuk_mem.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/hooks.h"

void mem_enable_tracking(MEM_TRACKING_GRANULARITY bits) {
  const tbb::spin_mutex::scoped_lock lock(mem_granularity_lock);
  if (mem_tbb_tracking_ended) return;
  const std::uint32_t old = mem_tracking_granularity.fetch_or(bits);
  if (old == MEM_TRACK_NONE && bits != MEM_TRACK_NONE) mem_install_tracker_hooks();
}

void mem_disable_tracking(MEM_TRACKING_GRANULARITY bits) {
  const tbb::spin_mutex::scoped_lock lock(mem_granularity_lock);
  const std::uint32_t old = mem_tracking_granularity.fetch_and(~bits);
  if (old != MEM_TRACK_NONE && (old & ~bits) == MEM_TRACK_NONE) mem_remove_tracker_hooks();
}
