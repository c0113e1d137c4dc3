#include "mem/tracker/fork_handlers.h"

#include <pthread.h>

#include "mem/allocator/hook_switch.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/critical_section.h"
#include "mem/base/kept_text.h"
#include "mem/base/lock_order.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/parts.h"

namespace {

// Nothing is locked before a fork: another thread may hold any lock while it waits for one that a
// host's own handler holds. So the child finds everything as it happened to be, and lets go of it.
void in_child() {
  mem_pools_are_abandoned = true;
  mem_tbb_tracking_ended = true;
  mem_tracker_gate.abandon();
  mem_critical_section.start_anew_in_child();
  mem_abandon_kept_texts();
  mem_abandon_hook_switches();
  mem_abandon_parts();
  mem_forget_locks_held();
}

}  // namespace

void mem_register_fork_handlers() { pthread_atfork(nullptr, nullptr, in_child); }
