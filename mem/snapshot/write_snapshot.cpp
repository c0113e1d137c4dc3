#include "mem/snapshot/write_snapshot.h"

#include <new>

#include "include/tuk_mem.h"
#include "mem/base/error_line.h"
#include "mem/base/host_thread.h"
#include "mem/base/own_stack.h"
#include "mem/base/signals_held.h"
#include "mem/output/run_start.h"
#include "mem/report/report_set.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "mem/state/tracker_visit.h"
#include "mem/tracker/peaks.h"
#include "mem/tracker/snapshot_request.h"

namespace {

using WHEN_TAKEN = MEM_GATE::PASS::WHEN_TAKEN;

void say_left_out(char const* why) {
  mem_say_error_line("MEM: a snapshot can't be written (%s): it is left out", why);
}

void show_flushed_peaks(MEM_REPORT_FIGURES& figures) {
  if (figures.wanted().granularity == MEM_TRACK_LEAKS_FAST) {
    std::int64_t& peak = figures.global_peak().bytes;
    peak = std::max(peak, mem_flushed_peak_memory());
  }
  if (!mem_flushed_peak_is_higher()) return;
  mem_show_flushed_peak(figures.sites());
  if (figures.wanted().call_paths) figures.call_paths().show_flushed_peak();
  if (!figures.wanted().bins) return;
  for (MEM_BIN_FIGURES* bins : {&figures.bins(), &figures.tags()})
    for (MEM_BIN_FIGURES::ROW& row : bins->rows) row.peak = row.flushed_peak;
}

void copy_figures(MEM_REPORT_FIGURES& figures) {
  const MEM_AUXILIARY_SAMPLE now = mem_auxiliary_timeline_file_t::now();
  const MEM_INSIDE_AS_CAT cat;
  const MEM_CAT_IS resting(MEM_THREAD_PLACE::CAT_AT_REST);
  figures.copy_all_and_now(now);
  show_flushed_peaks(figures);
}

// The host's callback is not asked from a hook: the name that the kernel knows.
MEM_BOOKKEEPING_STRING process_name() {
  return MEM_BOOKKEEPING_STRING(mem_note_run_start().executable_name());
}

bool has_filtered_addresses(const MEM_SITE_SNAPSHOT& sites) {
  return std::any_of(sites.rows().begin(), sites.rows().end(),
                     [](const MEM_SITE_ROW& row) { return row.site->filtered; });
}

void write_reports(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures) {
  mem_write_run_report(place, figures.wanted(), nullptr);
  mem_write_site_reports(place, figures);
  mem_write_call_path_report(place, figures);
  mem_write_auxiliary_report(place, figures);
  mem_write_module_reports(place, figures);
  mem_write_bin_reports(place, figures);
  mem_write_leak_report(place, figures, process_name);
  if (has_filtered_addresses(figures.sites())) mem_write_filters_report(place, figures);
}

void write_directory(const MEM_REPORTS_WANTED& wanted) {
  MEM_WHOLE_DIRECTORY directory;
  if (!directory.has_trouble()) {
    MEM_REPORT_FIGURES figures(wanted);
    copy_figures(figures);
    write_reports(&directory, figures);
  }
  directory.publish();
}

void write_snapshot(void*) {
  const auto tracked = static_cast<MEM_TRACKING_GRANULARITY>(mem_tracking_granularity.load());
  const MEM_REPORTS_WANTED wanted(tracked, mem_snapshots_in_vx_mode);
  if (!wanted.any()) return say_left_out("nothing is tracked");
  try {
    write_directory(wanted);
  } catch (const std::bad_alloc&) {
    say_left_out("out of memory");
  }
}

// Signals wait from before the gate is taken: a handler that left by longjmp, or forked, would do
// so in the middle of a file.
template <class IS_WANTED>
void write_unless_refused(WHEN_TAKEN when_taken, IS_WANTED is_wanted) {
  if (!mem_tbb_tracker_inited || mem_forked_inside || !mem_is_tracked_process() ||
      mem_thread_place != MEM_THREAD_PLACE::OUTSIDE)
    return;
  const MEM_ERRNO_KEPT host_errno;
  const MEM_CANCELLATION_HELD not_cancelled;
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_SIGNALS_HELD signals_wait;
  const MEM_GATE::PASS inside(mem_tracker_gate, when_taken);
  if (!inside || mem_tbb_tracking_ended || !is_wanted()) return;
  if (!mem_run_on_own_stack(write_snapshot, nullptr)) say_left_out("no memory for a stack");
  mem_snapshot_is_done();
}

}  // namespace

void mem_write_requested_snapshot() {
  write_unless_refused(WHEN_TAKEN::LEAVE, mem_take_snapshot_request);
}

void mem_write_report_snapshot() {
  write_unless_refused(WHEN_TAKEN::WAIT, [] { return true; });
}
