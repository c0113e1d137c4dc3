#include "mem/tracker/hooks.h"

#include "mem/allocator/allocator_functions.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/tracker/accounting.h"

// The guard's destructor runs after the call, so that mem_track_alloc is never a tail call: the
// hook has to be a frame of its own.
void mem_tcmalloc_tracker_new_hook(void const* ptr, std::size_t requested) {
  if (!mem_allocator_owns(ptr)) return;
  const std::size_t allocated = mem_allocated_size(ptr);
  if (mem_thread_is_untracked()) {
    mem_profiler_stats.count_alloc(requested, allocated);
    return;
  }
  const MEM_INSIDE_TRACKER inside;
  try {
    mem_track_alloc(ptr, requested, allocated);
  } catch (...) {  // reported at shutdown: this is no place to report from
    ++mem_abandoned_events;
  }
}

void mem_tcmalloc_tracker_delete_hook(void const* ptr) {
  if (mem_allocator_owns(ptr)) mem_account_release(ptr, mem_allocated_size(ptr));
}

void mem_account_release(void const* ptr, std::size_t allocated) {
  if (mem_thread_is_untracked()) {
    mem_profiler_stats.count_dealloc(allocated, allocated);
    return;
  }
  const MEM_INSIDE_TRACKER inside;
  try {
    mem_track_dealloc(ptr, allocated);
  } catch (...) {
    ++mem_abandoned_events;
  }
}

void mem_install_tracker_hooks() {
  ptrfunc_AddNewHook(mem_tcmalloc_tracker_new_hook);
  ptrfunc_AddDeleteHook(mem_tcmalloc_tracker_delete_hook);
}

void mem_remove_tracker_hooks() {
  ptrfunc_RemoveNewHook(mem_tcmalloc_tracker_new_hook);
  ptrfunc_RemoveDeleteHook(mem_tcmalloc_tracker_delete_hook);
}
