// Ending a tracked run: no further event is counted, every report is written.
#include "include/tuk_mem.h"
#include "mem/allocator/allocation_log.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/records/cat_mouse_lock.h"
#include "mem/records/site_map.h"
#include "mem/report/report_file.h"
#include "mem/report/shutdown_reports.h"
#include "mem/stack/stack_filter.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/hooks.h"

namespace {

void stop_bins(MEM_TRACKING_GRANULARITY granularity) {
  if ((granularity & MEM_TRACK_PER_BIN) != MEM_TRACK_NONE)
    mem_set_tbb_memory_tracking_enabled(false);
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != MEM_TRACK_NONE)
    MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = false;
}

void write_site_reports() {
  if (!mem_tracking_fileline_env_set) return;
  mem_write_report("mem_tbb_fileline.", mem_dump_tbb_fileline_tracking);
  mem_write_report("mem_tbb_subsystem.", mem_dump_tbb_subsystem_tracking);
  mem_write_report("mem_tbb_subsystem_base_addresses.", mem_write_base_addresses,
                   "unable to create KMP subsystem base addresses file");
}

void write_leak_report(MEM_TRACKING_GRANULARITY granularity) {
  if ((granularity & MEM_TRACK_LEAKS) != MEM_TRACK_NONE)
    mem_write_full_leak_report();
  else if ((granularity & MEM_TRACK_LEAKS_FAST) != MEM_TRACK_NONE)
    mem_write_fast_leak_report();
}

void write_filters_file() {
  if (mem_want_tbb_filters_file && mem_address_tracker_map != nullptr)
    mem_write_report("mem_tbb_filters.", mem_write_filtered_addresses,
                     "unable to create KMP filters file");
}

void report_abandoned_events() {
  if (mem_abandoned_events != 0)
    mem_tracker_debug("Memory tracking: %llu events were not accounted, for want of memory",
                      static_cast<unsigned long long>(mem_abandoned_events));
}

// Fast leak checking stays on, deliberately.
void forget_what_was_tracked() {
  mem_disable_tracking(MEM_TRACK_ALL);
  mem_tracking_fileline_env_set = false;
  mem_tracking_library_env_set = false;
  mem_tracking_per_bin_detailed_env_set = false;
  mem_tracking_auxiliary_timeline_env_set = false;
}

}  // namespace

void mem_shutdown_tbb_tracking() {
  // Once: fast leak checking stays on, and a second summary of the same process would mislead.
  if (!mem_tbb_tracker_inited || mem_tbb_tracking_ended) return;
  // A notification on this thread would wait for the cat section it stands in.
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const auto granularity = static_cast<MEM_TRACKING_GRANULARITY>(mem_tracking_granularity.load());
  mem_close_allocation_log();
  stop_bins(granularity);
  mem_remove_tracker_hooks();
  const MEM_INSIDE_AS_CAT cat;
  mem_tbb_tracking_ended = true;
  write_site_reports();
  write_leak_report(granularity);
  write_filters_file();
  report_abandoned_events();
  forget_what_was_tracked();
}
