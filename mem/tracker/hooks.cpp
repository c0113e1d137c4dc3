#include "mem/tracker/hooks.h"

#include <atomic>
#include <utility>

#include "mem/allocator/allocator_functions.h"
#include "mem/base/host_thread.h"
#include "mem/base/standard_error.h"
#include "mem/modules/module_watch.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/tracker/accounting.h"
#include "mem/tracker/removed_modules.h"
#include "mem/tracker/snapshot_request.h"

namespace {

constinit bool hooks_are_installed = false;
constinit bool hooks_stay = false;

// In a forked child the hooks stay installed.
bool nothing_is_tracked() {
  return mem_tracking_granularity.load(std::memory_order_relaxed) == MEM_TRACK_NONE;
}

}  // namespace

// The guards' destructors run after the call, so that mem_track_alloc is never a tail call: the
// hook has to be a frame of its own.
void mem_tcmalloc_tracker_new_hook(void const* ptr, std::size_t requested) {
  if (nothing_is_tracked() || !mem_allocator_owns(ptr)) return;
  const std::size_t allocated = mem_allocated_size(ptr);
  if (mem_thread_is_untracked()) {
    mem_profiler_stats.count_alloc(requested, allocated);
    return;
  }
  {
    const MEM_ERRNO_KEPT host_errno;
    const MEM_INSIDE_TRACKER inside;
    try {
      mem_track_alloc(ptr, requested, allocated);
    } catch (...) {  // reported at shutdown: this is no place to report from
      ++mem_abandoned_events;
    }
  }
  mem_end_event();
}

void mem_tcmalloc_tracker_delete_hook(void const* ptr) {
  if (nothing_is_tracked()) return;
  if (mem_loader_is_removing()) [[unlikely]]
    mem_retire_modules_removed_now();
  if (!mem_allocator_owns(ptr)) return;
  mem_account_release(ptr, mem_allocated_size(ptr));
}

void mem_account_release(void const* ptr, std::size_t allocated) {
  if (mem_thread_is_untracked()) {
    mem_profiler_stats.count_dealloc(allocated, allocated);
    return;
  }
  {
    const MEM_ERRNO_KEPT host_errno;
    const MEM_INSIDE_TRACKER inside;
    try {
      mem_track_dealloc(ptr, allocated);
    } catch (...) {
      ++mem_abandoned_events;
    }
  }
  mem_end_event();
}

void mem_install_tracker_hooks() {
  if (std::exchange(hooks_are_installed, true)) return;
  mem_retire_modules_removed_unseen();
  ptrfunc_AddNewHook(mem_tcmalloc_tracker_new_hook);
  ptrfunc_AddDeleteHook(mem_tcmalloc_tracker_delete_hook);
}

void mem_remove_tracker_hooks() {
  if (hooks_stay || !std::exchange(hooks_are_installed, false)) return;
  ptrfunc_RemoveNewHook(mem_tcmalloc_tracker_new_hook);
  ptrfunc_RemoveDeleteHook(mem_tcmalloc_tracker_delete_hook);
}

void mem_keep_tracker_hooks() { hooks_stay = hooks_are_installed; }

void mem_say_if_nothing_is_hooked() {
  static constinit std::atomic<bool> was_said = false;
  if (mem_allocator_is_hooked() || was_said.exchange(true)) return;
  mem_say_on_standard_error(
      "MEM: memory tracking was asked for, but the process's allocator has no hooks (is "
      "libtcmalloc.so.4 preloaded or linked, or libtuk_mem_malloc.so in front of another "
      "allocator? "
      "One that is linked statically can't be hooked): no heap block will be in the reports");
}

void mem_switch_tracking_off(MEM_TRACKING_GRANULARITY bits) {
  const std::uint32_t old = mem_tracking_granularity.fetch_and(~bits);
  if (old != MEM_TRACK_NONE && (old & ~bits) == MEM_TRACK_NONE) mem_remove_tracker_hooks();
}
