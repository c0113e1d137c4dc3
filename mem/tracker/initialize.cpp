// Bringing the tracker up, once per process.
#include <omp.h>

#include <mutex>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/standard_error.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/records/block_bins.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/fork_handlers.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/parts.h"

namespace {

MEM_ADDRESS_TRACKER& create_catch_all_site() {
  const std::lock_guard trace(mem_trace_lock);
  return mem_catch_all_site();
}

void link_to_module(MEM_ADDRESS_TRACKER& site) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_module_of(site);
}

// Reports full of zeros must not pass for the truth.
void say_if_nothing_is_hooked(MEM_TRACKING_GRANULARITY granularity) {
  if (granularity != MEM_TRACK_NONE && !mem_allocator_is_hooked())
    mem_say_on_standard_error(
        "MEM: memory tracking was asked for, but the process's allocator has no hooks (is "
        "libtcmalloc.so.4 preloaded or linked?): no heap block will be in the reports");
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

// Of two first calls on different threads, one waits for the other; a call from inside the work, by
// a settings callback for instance, does nothing.
void mem_initialize_tbb_tracking(MEM_TRACKING_GRANULARITY granularity) {
  if (mem_tbb_tracker_inited) return;
  const MEM_GATE::PASS inside(mem_tracker_gate);
  if (!inside || mem_tbb_tracker_inited) return;
  static_cast<void>(omp_get_num_procs());
  mem_read_snapshot_settings();
  mem_create_parts(granularity);
  link_to_module(create_catch_all_site());
  mem_register_fork_handlers();
  start_tracking(granularity);
  say_if_nothing_is_hooked(granularity);

  mem_read_incomplete_fileline_setting();
  mem_read_allocator_aid_settings();
}

void mem_initialize_tbb_tracking_from_env() {
  mem_initialize_tbb_tracking(mem_get_tracking_granularity_from_env());
}

void mem_set_tbb_memory_tracking_enabled(bool on) {
  mem_initialize_tbb_tracking(MEM_TRACK_PER_BIN);
  if (!on || !mem_tbb_tracking_ended) MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = on;
}
