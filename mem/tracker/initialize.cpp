// Bringing the tracker up, once per process.
#include <omp.h>

#include <mutex>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/records/block_bins.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/settings/call_path_settings.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/fork_handlers.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/parts.h"

namespace {

void link_to_module(MEM_ADDRESS_TRACKER& site) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_module_of(site);
}

// Start-up was here before main: whoever asks now finds only what was asked for then.
void say_what_came_too_late(MEM_TRACKING_GRANULARITY asked_for) {
  const std::uint32_t missing = asked_for & ~mem_tracking_granularity;
  if (missing != MEM_TRACK_NONE)
    mem_tracker_debug("Memory tracking was initialized before: granularity %u has no effect",
                      missing);
}

// The flag comes first: from the moment the hooks are in, any thread's allocation looks at it, and
// so does the nested initialisation of the bins.
void start_tracking(MEM_TRACKING_GRANULARITY granularity) {
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != MEM_TRACK_NONE) mem_create_block_bins();
  mem_tracking_granularity = granularity;
  mem_tbb_tracker_inited = true;
  if (granularity != MEM_TRACK_NONE) mem_install_tracker_hooks();
  if ((granularity & MEM_TRACK_PER_BIN) != MEM_TRACK_NONE)
    mem_set_tbb_memory_tracking_enabled(true);
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != MEM_TRACK_NONE)
    MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
}

}  // namespace

void mem_track_in_child(MEM_TRACKING_GRANULARITY granularity) {
  mem_note_tracked_process();
  mem_follow_parts(granularity);
  link_to_module(mem_catch_all_site());
  mem_tbb_tracking_ended = false;
  mem_tbb_reports_are_written = false;
  start_tracking(granularity);
}

// Of two first calls on different threads, one waits for the other; a call from inside the work, by
// a settings callback for instance, does nothing.
void mem_initialize_tbb_tracking(MEM_TRACKING_GRANULARITY granularity) {
  if (mem_tbb_tracker_inited) return say_what_came_too_late(granularity);
  const MEM_GATE::PASS inside(mem_tracker_gate);
  if (!inside || mem_tbb_tracker_inited) return;
  static_cast<void>(omp_get_num_procs());
  mem_read_snapshot_settings();
  if ((granularity & MEM_TRACK_CALL_PATHS) != MEM_TRACK_NONE) mem_read_call_path_settings();
  mem_note_tracked_process();
  mem_create_parts(granularity);
  link_to_module(mem_catch_all_site());
  mem_register_fork_handlers(granularity);
  start_tracking(granularity);
  if (granularity != MEM_TRACK_NONE) mem_say_if_nothing_is_hooked();

  mem_read_incomplete_fileline_setting();
  mem_read_allocator_aid_settings();
}

void mem_initialize_tbb_tracking_from_env() {
  mem_initialize_tbb_tracking(mem_get_tracking_granularity_from_env());
}

void mem_set_tbb_memory_tracking_enabled(bool on) {
  if (on || !mem_tbb_tracker_inited) mem_initialize_tbb_tracking(MEM_TRACK_PER_BIN);
  if (!on || !mem_tbb_tracking_ended) MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = on;
}
