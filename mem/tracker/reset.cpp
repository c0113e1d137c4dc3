// Starting the accounting afresh in the middle of a run.
#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/parts.h"

// On a thread that is inside the tracker's lock already, in a signal handler for instance, it would
// wait for itself.
void mem_reset_tracking_entries() {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  if (mem_thread_place != MEM_THREAD_PLACE::OUTSIDE) return;
  const MEM_INSIDE_TRACKER inside;
  const MEM_INSIDE_AS_CAT cat;
  if (!mem_tbb_tracking_ended) mem_reset_parts();
}
