// Ending a tracked run: no further event is counted, every report is written.
#include <algorithm>
#include <new>

#include "include/tuk_mem.h"
#include "mem/allocator/allocation_log.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/manager/statistics.h"
#include "mem/output/report_directory.h"
#include "mem/records/site_map.h"
#include "mem/report/report_file.h"
#include "mem/report/shutdown_reports.h"
#include "mem/shutdown/end_of_tracking.h"
#include "mem/stack/stack_filter.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/peaks.h"

namespace {

void stop_bins(MEM_TRACKING_GRANULARITY granularity) {
  if ((granularity & MEM_TRACK_PER_BIN) != MEM_TRACK_NONE)
    mem_set_tbb_memory_tracking_enabled(false);
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != MEM_TRACK_NONE)
    MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = false;
}

// The statistics forget their peak at every flush: the largest of all phases is brought back.
void restore_global_peak(MEM_TRACKING_GRANULARITY granularity) {
  if (granularity != MEM_TRACK_LEAKS_FAST) return;
  std::atomic<std::int64_t>& peak = mem_pbin_stats.global_peak.bytes;
  peak = std::max(peak.load(), mem_flushed_peak_memory());
}

// Beside the reports, when these go to a directory of their own.
void write_run_file(MEM_TRACKING_GRANULARITY granularity) {
  const bool has_reports = granularity != MEM_TRACK_NONE || mem_tracking_fileline_env_set ||
                           mem_tracking_library_env_set || mem_tracking_per_bin_detailed_env_set ||
                           mem_tracking_auxiliary_timeline_env_set;
  if (has_reports && mem_report_directory() != nullptr)
    mem_write_report("mem_tbb_run.",
                     [granularity](std::ostream& out) { mem_write_run_file(out, granularity); });
}

void write_site_reports() {
  if (!mem_tracking_fileline_env_set) return;
  mem_write_report("mem_tbb_fileline.", mem_dump_tbb_fileline_tracking);
  mem_write_report("mem_tbb_subsystem.", mem_dump_tbb_subsystem_tracking);
  mem_write_report("mem_tbb_subsystem_base_addresses.", mem_write_base_addresses,
                   "unable to create KMP subsystem base addresses file");
}

// Which timelines are written: those being kept now, and those asked for by name.
struct TIMELINES {
  bool auxiliary;
  bool modules;
  bool bins;

  explicit TIMELINES(MEM_TRACKING_GRANULARITY granularity)
      : auxiliary(is_kept(granularity, MEM_TRACK_AUXILIARY_TIMELINE,
                          mem_tracking_auxiliary_timeline_env_set)),
        modules(is_kept(granularity, MEM_TRACK_PER_LIBRARY, mem_tracking_library_env_set)),
        bins(is_kept(granularity, MEM_TRACK_PER_BIN_DETAILED,
                     mem_tracking_per_bin_detailed_env_set)) {}

 private:
  static bool is_kept(MEM_TRACKING_GRANULARITY granularity, MEM_TRACKING_GRANULARITY bit,
                      bool asked_for) {
    return asked_for || (granularity & bit) != MEM_TRACK_NONE;
  }
};

// A sample takes memory, which may have run out.
template <class CAPTURE>
void capture_if_possible(CAPTURE capture) {
  try {
    capture();
  } catch (const std::bad_alloc&) {
    mem_tracker_debug(
        "Memory tracking: the last sample of a timeline is left out, for want of memory");
  }
}

template <class SERIES>
void capture_last(SERIES* series) {
  capture_if_possible([series] {
    const MEM_TRACKER_VISIT visit;
    series->capture();
  });
}

void write_auxiliary_timeline() {
  capture_if_possible(mem_auxiliary_timeline_file_t::capture);
  mem_write_report("mem_tbb_auxiliary_timeline.", mem_write_auxiliary_timeline);
}

void write_module_timelines() {
  capture_last(mem_module_timeline);
  mem_write_report_pair("mem_tbb_timeline.", "mem_tbb_timeline_detailed.",
                        mem_dump_tbb_module_tracking);
  const MEM_SERIES_SELECTED selected(MEM_MODULE_TIMELINE::SELECTION::CUMULATIVE_BLOCKS);
  mem_write_report_pair("mem_tbb_cumulative_blocks_timeline.",
                        "mem_tbb_cumulative_blocks_timeline_detailed.",
                        mem_dump_tbb_module_tracking);
}

void capture_last_tags() {
  if (MEM_PB_TAG_SNAPSHOT::can_record_current_bin())
    capture_last(mem_pbin_tag_snapshots);
  else
    mem_tracker_debug(
        "Memory tracking: the open bin is beyond the 65536 that a tag timeline can name, the last "
        "sample is left out");
}

void write_bin_reports() {
  capture_last_tags();
  mem_write_report_pair("mem_tbb_pbin_tag_timeline.", "mem_tbb_pbin_tag_timeline_detailed.",
                        mem_dump_tbb_profile_bin_tag_timeline_tracking);
  mem_write_report("mem_tbb_pbin_tag_stats.", mem_dump_tbb_profile_bin_tag_stats_tracking);
  mem_write_report("mem_tbb_pbin_tag_stats_mb.", mem_write_tag_stats_in_mib);
  mem_write_report("mem_tbb_pbin_stats.", mem_dump_tbb_profile_bin_stats_tracking);
  mem_write_report("mem_tbb_pbin_stats_mb.", mem_write_bin_stats_in_mib);
}

void write_timelines(MEM_TRACKING_GRANULARITY granularity) {
  const TIMELINES kept(granularity);
  if (!kept.auxiliary && !kept.modules && !kept.bins) return;
  capture_last(mem_timeline_labels);
  if (kept.auxiliary) write_auxiliary_timeline();
  if (kept.modules) write_module_timelines();
  if (kept.bins) write_bin_reports();
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

// No further event is counted: hooks that run still find tracking ended.
void stop_counting() {
  const MEM_GRANULARITY_CHANGE change;
  mem_remove_tracker_hooks();
  mem_tbb_tracking_ended = true;
}

// Fast leak checking stays on: hosts ask for it after the end.
void forget_what_was_tracked() {
  mem_tracking_granularity.fetch_and(~std::uint32_t{MEM_TRACK_ALL});
  mem_forget_requested_reports();
}

void write_reports(MEM_TRACKING_GRANULARITY granularity) {
  const MEM_INSIDE_AS_CAT cat;
  restore_global_peak(granularity);
  mem_restore_flushed_peak();
  const MEM_CAT_IS resting(MEM_THREAD_PLACE::CAT_AT_REST);
  write_site_reports();
  write_timelines(granularity);
  write_leak_report(granularity);
  write_filters_file();
  report_abandoned_events();
  forget_what_was_tracked();
}

}  // namespace

bool mem_end_tracking() {
  if (mem_thread_place != MEM_THREAD_PLACE::OUTSIDE) {
    mem_tracker_debug("Memory tracking: the process ends inside the tracker, no report is written");
    return false;
  }
  if (mem_tbb_tracking_ended) return true;
  const auto granularity = static_cast<MEM_TRACKING_GRANULARITY>(mem_tracking_granularity.load());
  mem_close_allocation_log();
  stop_bins(granularity);
  stop_counting();
  write_run_file(granularity);
  write_reports(granularity);
  mem_tbb_reports_are_written = true;
  return true;
}

void mem_shutdown_tbb_tracking() {
  if (!mem_tbb_tracker_inited) return;
  // A notification on this thread would wait for the cat section it stands in.
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_GATE::PASS inside(mem_tracker_gate);
  if (inside) mem_end_tracking();
}
