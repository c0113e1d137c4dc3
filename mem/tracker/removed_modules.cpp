#include "mem/tracker/removed_modules.h"

#include <cstdint>
#include <mutex>

#include "mem/base/host_thread.h"
#include "mem/modules/module_watch.h"
#include "mem/paths/call_paths.h"
#include "mem/records/site_map.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_visit.h"
#include "mem/unwind/stack_walk.h"

namespace {

void retire_records(std::uintptr_t begin, std::uintptr_t end) {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_tbb_tracking_ended || mem_address_tracker_map == nullptr) return;
  mem_remove_call_paths(begin, end);
  const std::lock_guard trace(mem_trace_lock);
  mem_retire_sites(begin, end);
}

void retire(std::uintptr_t begin, std::uintptr_t end) {
  mem_forget_unwind_rules(begin, end);
  try {
    retire_records(begin, end);
  } catch (...) {  // reported at shutdown, like any event that there was no memory for
    ++mem_abandoned_events;
  }
}

// Inside the tracker nobody unloads a module: the loader is at it on another thread.
[[gnu::cold, gnu::noinline]] void look(MEM_MODULE_LOOK look) {
  if (mem_tbb_tracker_thread_local_block_recurse || mem_thread_place != MEM_THREAD_PLACE::OUTSIDE)
    return;
  const MEM_ERRNO_KEPT host_errno;
  const MEM_INSIDE_TRACKER inside;
  mem_retire_removed_modules(look, retire);
}

}  // namespace

void mem_retire_modules_removed_now() { look(MEM_MODULE_LOOK::REMOVED); }
void mem_retire_modules_removed_unseen() { look(MEM_MODULE_LOOK::MISSED); }
