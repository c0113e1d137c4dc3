// Bringing the tracker up, once per process.
#include <omp.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/records/block_bins.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/stack/stack_filter.h"
#include "mem/stack/unwinder.h"
#include "mem/stack/user_filters.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"
#include "mem/tracker/fork_handlers.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/peaks.h"

namespace {

std::string unwinder_name_from_environment() {
  char const* name = std::getenv("KORVANE_MEM_PROFILE_UNWINDER");
  return name == nullptr ? std::string() : std::string(name);
}

void create_site_map() {
  mem_address_tracker_map = new MEM_ADDRESS_TRACKER_MAP;
  mem_address_tracker_map->max_load_factor(1.0F);
}

void link_catch_all_site() {
  const std::scoped_lock locks(mem_trace_lock, mem_module_tracker_lock);
  mem_module_of(mem_catch_all_site());
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

void mem_initialize_tbb_tracking(MEM_TRACKING_GRANULARITY granularity) {
  if (mem_tbb_tracker_inited) return;
  static_cast<void>(omp_get_num_procs());
  mem_read_snapshot_settings();
  mem_rearm_peak_detection();
  const std::string unwinder_name = unwinder_name_from_environment();

  create_site_map();
  mem_create_live_block_map();
  mem_module_tracker_map = new MEM_MODULE_TRACKER_MAP;
  mem_create_module_timeline();
  mem_create_auxiliary_timeline();
  mem_create_timeline_labels();
  mem_create_pbin_trackers();
  mem_create_tag_snapshots();

  mem_select_unwinder(unwinder_name.c_str());
  mem_read_ignore_depth_setting();
  mem_prepare_unwinder();
  mem_select_symbolizer(granularity != MEM_TRACK_NONE);
  mem_create_user_filters();
  if (granularity != MEM_TRACK_NONE) mem_read_user_filters();

  mem_tbb_exe_string = new std::string("kvi");
  mem_create_cat_mouse_lock();
  link_catch_all_site();
  mem_register_fork_handlers();
  start_tracking(granularity);

  mem_read_incomplete_fileline_setting();
  mem_read_allocator_aid_settings();
}

void mem_initialize_tbb_tracking_from_env() {
  mem_initialize_tbb_tracking(mem_get_tracking_granularity_from_env());
}

void mem_set_tbb_memory_tracking_enabled(bool on) {
  mem_initialize_tbb_tracking(MEM_TRACK_PER_BIN);
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = on;
}
