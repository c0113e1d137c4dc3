#include "mem/tracker/fork_handlers.h"

#include <pthread.h>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"
#include "mem/tracker/hooks.h"

namespace {

// The one lock that is taken: the allocator must not be forked while a hook is being added or
// removed. Any other could be held by a thread that waits for the allocator, whose own handler may
// have run before this one.
void before_fork() { mem_granularity_lock.lock(); }

void in_parent() { mem_granularity_lock.unlock(); }

void end_tracking() {
  if (mem_tracking_granularity.exchange(MEM_TRACK_NONE) != MEM_TRACK_NONE)
    mem_remove_tracker_hooks();
  mem_tbb_tracking_ended = true;
  mem_forget_requested_reports();
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = false;
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = false;
}

// Another thread may have held any lock and been half through any change. The records are left
// where they are; everything that calls can still reach begins anew, empty and unlocked.
void start_anew() {
  mem_critical_section.start_anew_in_child();
  mem_abandon_live_blocks();
  mem_abandon_sites();
  mem_abandon_modules();
  mem_create_cat_mouse_lock();
  mem_create_module_timeline();
  mem_create_auxiliary_timeline();
  mem_create_timeline_labels();
  MEM_USER_MEMORY_TRACKER::abandon_instance();
  mem_create_pbin_trackers();
  mem_create_tag_snapshots();
  MEM_SYMBOLIZER_FACTORY::abandon_all_tools();
}

void in_child() {
  end_tracking();
  start_anew();
  mem_granularity_lock.unlock();
}

}  // namespace

void mem_register_fork_handlers() { pthread_atfork(before_fork, in_parent, in_child); }
