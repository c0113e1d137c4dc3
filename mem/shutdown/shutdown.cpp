// Ending a tracked run: no further event is counted, every report is written.
#include <algorithm>
#include <exception>
#include <new>

#include "include/tuk_mem.h"
#include "mem/allocator/allocation_log.h"
#include "mem/base/host_thread.h"
#include "mem/base/lifecycle.h"
#include "mem/base/own_stack.h"
#include "mem/base/signals_held.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/host/settings.h"
#include "mem/manager/statistics.h"
#include "mem/records/site_map.h"
#include "mem/report/report_set.h"
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
#include "mem/tracker/snapshot_request.h"
#include "mem/unwind/stack_bounds.h"

namespace {

constexpr std::size_t stack_for_reports = std::size_t{64} * 1024;

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

void capture_last_tags() {
  if (MEM_PB_TAG_SNAPSHOT::can_record_current_bin())
    capture_last(mem_pbin_tag_snapshots);
  else
    mem_tracker_debug(
        "Memory tracking: the open bin is beyond the 65536 that a tag timeline can name, the last "
        "sample is left out");
}

void capture_last_samples(const MEM_REPORTS_WANTED& wanted) {
  if (!wanted.any_timeline()) return;
  capture_last(mem_timeline_labels);
  if (wanted.auxiliary) capture_if_possible(mem_auxiliary_timeline_file_t::capture);
  if (wanted.modules) capture_last(mem_module_timeline);
  if (wanted.bins) capture_last_tags();
}

MEM_BOOKKEEPING_STRING process_name() {
  return MEM_BOOKKEEPING_STRING(std::string_view(mem_gen_get_module_filename()));
}

// The figures of each part are given back before the next: where memory has run out, there is room
// for one at a time.
void write_all(MEM_REPORT_FIGURES& figures) {
  MEM_REPORT_PLACE everywhere = nullptr;
  for (const auto write :
       {mem_write_site_reports, mem_write_call_path_report, mem_write_auxiliary_report,
        mem_write_module_reports, mem_write_bin_reports}) {
    write(everywhere, figures);
    figures.forget();
  }
  mem_write_leak_report(everywhere, figures, process_name);
  if (mem_want_tbb_filters_file && mem_address_tracker_map != nullptr)
    mem_write_filters_report(everywhere, figures);
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
  mem_tracking_granularity.fetch_and(~std::uint32_t{MEM_TRACK_ALL | MEM_TRACK_CALL_PATHS});
  mem_forget_requested_reports();
}

void write_reports(const MEM_REPORTS_WANTED& wanted) {
  mem_write_run_report(nullptr, wanted, mem_how_the_run_ends());
  const MEM_INSIDE_AS_CAT cat;
  restore_global_peak(wanted.granularity);
  mem_restore_flushed_peak();
  const MEM_CAT_IS resting(MEM_THREAD_PLACE::CAT_AT_REST);
  capture_last_samples(wanted);
  MEM_REPORT_FIGURES figures(wanted);
  write_all(figures);
  report_abandoned_events();
  forget_what_was_tracked();
}

struct WRITING {
  const MEM_REPORTS_WANTED& wanted;
  std::exception_ptr thrown = nullptr;  // by the host's part in it
};

void write_and_keep_exception(void* argument) {
  auto& writing = *static_cast<WRITING*>(argument);
  try {
    write_reports(writing.wanted);
  } catch (...) {
    writing.thrown = std::current_exception();
  }
}

// The thread that ends the process may have a small stack. Signals wait then, for the host's
// handlers know nothing of ours.
[[gnu::cold]] void write_reports_on_own_stack(const MEM_REPORTS_WANTED& wanted) {
  const MEM_CANCELLATION_HELD not_cancelled;
  const MEM_SIGNALS_HELD signals_wait;
  WRITING writing{wanted};
  if (!mem_run_on_own_stack(write_and_keep_exception, &writing))
    mem_tracker_debug("Memory tracking: no report is written, for want of memory for a stack");
  if (writing.thrown) std::rethrow_exception(writing.thrown);
}

}  // namespace

bool mem_end_tracking() {
  if (mem_forked_inside) return false;
  if (mem_thread_place != MEM_THREAD_PLACE::OUTSIDE) {
    mem_tracker_debug("Memory tracking: the process ends inside the tracker, no report is written");
    return false;
  }
  if (mem_tbb_tracking_ended) return true;
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  mem_end_snapshots();
  const auto granularity = static_cast<MEM_TRACKING_GRANULARITY>(mem_tracking_granularity.load());
  mem_close_allocation_log();
  stop_bins(granularity);
  stop_counting();
  const MEM_REPORTS_WANTED wanted(granularity, mem_setting_is_on("MEM_LEAK_TRACKING_IN_VX_MODE"));
  if (mem_has_stack_left(stack_for_reports))
    write_reports(wanted);
  else
    write_reports_on_own_stack(wanted);
  mem_tbb_reports_are_written = true;
  return true;
}

void mem_shutdown_tbb_tracking() {
  if (!mem_tbb_tracker_inited || !mem_is_tracked_process()) return;
  // A notification on this thread would wait for the cat section it stands in.
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_GATE::PASS inside(mem_tracker_gate);
  if (inside) mem_end_tracking();
}
