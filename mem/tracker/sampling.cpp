#include "mem/tracker/sampling.h"

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"

[[gnu::cold]] void mem_capture_companions(std::uint32_t granularity) {
  if ((granularity & MEM_MASK_LABELS) != 0) mem_timeline_labels->capture();
  if ((granularity & MEM_TRACK_AUXILIARY_TIMELINE) != 0) mem_auxiliary_timeline_file->capture();
}

void mem_user_snapshot_tracking_data() {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  {
    // Keeps the shutdown, which frees the module records, waiting.
    const MEM_INSIDE_AS_MOUSE mouse;
    if (mem_tbb_tracking_ended) return;
    mem_module_timeline->capture();
  }
  mem_pbin_tag_snapshots->capture();
  mem_timeline_labels->capture();
  mem_auxiliary_timeline_file->capture();
  mem_snapshot_count.fetch_add(1);
}
