// Freeing the tracker.
#include <utility>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"

// A thread caught in a hook still enters the cat-and-mouse lock, finds that tracking has ended and
// leaves the records alone. What it may reach without that lock is emptied, never freed.
void mem_cleanup_tbb_tracking() {
  if (!mem_tbb_tracker_inited) return;
  mem_shutdown_tbb_tracking();
  if (!mem_tbb_tracking_ended) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  MEM_USER_MEMORY_TRACKER::destroy_instance();
  mem_pbin_tag_snapshots->clear_with_tags();
  mem_pbin_tracker->clear();
  mem_timeline_labels->clear();
  mem_auxiliary_timeline_file->clear();
  mem_module_timeline->clear();
  mem_free_live_block_map();
  mem_free_site_map();
  delete std::exchange(mem_module_tracker_map, nullptr);
  // Allocations of other modules' destructors may have started tools since the exit began.
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  delete std::exchange(mem_tbb_exe_string, nullptr);
}
