// Freeing the tracker.
#include "include/tuk_mem.h"
#include "mem/shutdown/end_of_tracking.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/parts.h"

// Whoever is inside the tracker's lock now finds the records whole; whoever comes later finds none.
void mem_cleanup_tbb_tracking() {
  if (!mem_tbb_tracker_inited || !mem_is_tracked_process()) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_GATE::PASS inside(mem_tracker_gate);
  if (!inside || !mem_end_tracking()) return;
  const MEM_INSIDE_AS_CAT cat;
  mem_free_parts();
}
