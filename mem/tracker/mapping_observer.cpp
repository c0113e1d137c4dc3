#include "mem/tracker/mapping_observer.h"

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/host_thread.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/accounting.h"
#include "mem/tracker/hooks.h"
#include "mem/tracker/snapshot_request.h"

namespace {

// A notification can be the first thing that starts the tracker, also before the library's own
// start-up, which finds the allocator otherwise.
bool is_tracking() {
  if (!mem_tbb_tracker_inited) {
    init_tcmalloc_functions();
    mem_initialize_tbb_tracking_from_env();
  }
  return mem_tracking_granularity != MEM_TRACK_NONE;
}

// These two stand where the allocator's frames stand in a block's stack, so that the site is the
// caller of the notification. See the ignore depth.
[[gnu::noinline]] void account_added(void const* address, unsigned long size) {
  const MEM_ERRNO_KEPT host_errno;
  const MEM_INSIDE_TRACKER inside;
  try {
    mem_track_alloc(address, size, size);
  } catch (...) {
    ++mem_abandoned_events;
  }
}

[[gnu::noinline]] void add_mapping(void const* address, unsigned long size) {
  account_added(address, size);
  mem_end_event();
  asm volatile("");  // no tail call
}

}  // namespace

[[gnu::noinline]] void mem_notify_memory_mapping_added(void const* address, unsigned long size) {
  if (!is_tracking()) return;
  if (mem_thread_is_untracked())
    mem_profiler_stats.count_alloc(size, size);
  else
    add_mapping(address, size);
  asm volatile("");  // no tail call
}

void mem_notify_memory_mapping_removed(void const* address, unsigned long size) {
  if (is_tracking()) mem_account_release(address, size);
}

MEM_UDM_OBSERVER::MEM_UDM_OBSERVER() {
  if (!UDM_BAREBONES_NOTIFIER::is_registered(this)) UDM_BAREBONES_NOTIFIER::add_observer(this);
}

MEM_UDM_OBSERVER::~MEM_UDM_OBSERVER() {
  if (UDM_BAREBONES_NOTIFIER::is_registered(this)) UDM_BAREBONES_NOTIFIER::remove_observer(this);
}

void MEM_UDM_OBSERVER::mapping_added(void const* address, unsigned long size) {
  mem_notify_memory_mapping_added(address, size);
}

void MEM_UDM_OBSERVER::mapping_removed(void const* address, unsigned long size) {
  mem_notify_memory_mapping_removed(address, size);
}
