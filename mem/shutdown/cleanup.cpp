// Freeing the tracker.
#include <utility>

#include "include/tuk_mem.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "mem/symbolizer/symbolizer_factory.h"

// The cat-and-mouse lock stays: a thread caught in a hook still enters it, finds that tracking
// has ended and leaves without touching what is freed here.
void mem_cleanup_tbb_tracking() {
  if (!mem_tbb_tracker_inited) return;
  mem_shutdown_tbb_tracking();
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  mem_free_live_block_map();
  delete std::exchange(mem_address_tracker_map, nullptr);
  delete std::exchange(mem_module_tracker_map, nullptr);
  // Allocations of other modules' destructors may have started tools since the exit began.
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  delete std::exchange(mem_tbb_exe_string, nullptr);
}
