#include "mem/tracker/fork_handlers.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "mem/allocator/hook_switch.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/critical_section.h"
#include "mem/base/error_line.h"
#include "mem/base/kept_text.h"
#include "mem/base/lifecycle.h"
#include "mem/base/lock_order.h"
#include "mem/host/settings.h"
#include "mem/manager/statistics.h"
#include "mem/output/report_directory.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/parts.h"

// pthread_atfork, but for the object whose end takes the handlers off the list again: without one
// they stay, as the library does.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* object);

namespace {

constinit bool follows_children = false;

// What the parent tracked, and which reports it was asked for.
struct TRACKED {
  MEM_TRACKING_GRANULARITY granularity;
  bool reports[std::size(mem_requested_reports)];
  bool goes_on;

  // Where a signal handler forked that interrupted the tracker, it goes on with what it was doing.
  TRACKED()
      : granularity(static_cast<MEM_TRACKING_GRANULARITY>(mem_tracking_granularity.load())),
        goes_on(follows_children && !mem_tbb_tracking_ended &&
                !mem_tbb_tracker_thread_local_block_recurse &&
                mem_thread_place == MEM_THREAD_PLACE::OUTSIDE) {
    std::transform(std::begin(mem_requested_reports), std::end(mem_requested_reports), reports,
                   [](const auto* requested) { return requested->load(); });
  }
};

void go_on(const TRACKED& parent) {
  mem_start_child_memory();
  mem_pools = MEM_POOLS::OF_CHILD;
  mem_pbin_stats.reset();
  for (std::size_t report = 0; report < std::size(parent.reports); ++report)
    *mem_requested_reports[report] = parent.reports[report];
  try {
    mem_track_in_child(parent.granularity);
  } catch (...) {
    mem_say_error_line("MEM: process %d, made by fork, is not tracked: out of memory", getpid());
  }
}

// Nothing is locked before a fork: another thread may hold any lock while it waits for one that a
// host's own handler holds. So the child finds everything as it happened to be, and lets go of it.
void in_child() {
  const TRACKED parent;
  mem_forked_inside = mem_thread_place != MEM_THREAD_PLACE::OUTSIDE;
  mem_pools = MEM_POOLS::ABANDONED;
  mem_tbb_tracking_ended = true;
  mem_tracker_gate.abandon();
  mem_critical_section.start_anew_in_child();
  mem_abandon_kept_texts();
  mem_abandon_hook_switches();
  mem_abandon_parts();
  mem_forget_locks_held();
  mem_keep_tracker_hooks();
  if (parent.goes_on) go_on(parent);
}

void read_follow_setting(MEM_TRACKING_GRANULARITY granularity) {
  follows_children = mem_setting_is_on(mem_settings_row("mem_follow_fork"));
  if (follows_children && granularity != MEM_TRACK_NONE && mem_processes_share_report_directory())
    mem_say_error_line(
        "MEM: children made by fork are tracked, and all write the same files: a report directory "
        "with %%p in its name keeps them apart");
}

}  // namespace

void mem_register_fork_handlers(MEM_TRACKING_GRANULARITY granularity) {
  read_follow_setting(granularity);
  __register_atfork(nullptr, nullptr, in_child, nullptr);
}

// The executable's handlers are off the list by now. The C library ends the process when the list
// has become shorter than where a thread stands that comes back from one of them (its prepare
// handlers run without the list's lock); a process whose end takes no time hardly sees that happen,
// but reports take time.
void mem_pad_fork_handlers() {
  if (mem_tracking_granularity == MEM_TRACK_NONE) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  constexpr int more_than_a_host_registers = 64;
  for (int handler = 0; handler < more_than_a_host_registers; ++handler)
    __register_atfork(nullptr, nullptr, nullptr, nullptr);
}
