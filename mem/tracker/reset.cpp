// Starting the accounting afresh in the middle of a run.
#include <mutex>

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/peaks.h"

namespace {

// The catch-all and the module "OTHER" go too: the accounting creates them again on demand.
void forget_records() {
  mem_address_tracker_ptr_map->clear();
  {
    const std::lock_guard modules(mem_module_tracker_lock);
    mem_module_tracker_map->clear();
  }
  const std::lock_guard trace(mem_trace_lock);
  mem_clear_sites();
}

}  // namespace

// Bins, timelines, flushed peaks and the profiler's own figures stay, deliberately.
void mem_reset_tracking_entries() {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  const MEM_INSIDE_TRACKER inside;
  const MEM_INSIDE_AS_CAT cat;
  if (mem_tbb_tracking_ended) return;
  forget_records();
  mem_pbin_tag_snapshots->clear_with_tags();
  mem_rearm_peak_detection();
  mem_current_bytes = 0;
  ++mem_reset_count;
}
