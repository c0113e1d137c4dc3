#include "mem/tracker/fork_handlers.h"

#include "mem/allocator/hook_switch.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/critical_section.h"
#include "mem/base/kept_text.h"
#include "mem/base/lock_order.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/parts.h"

// pthread_atfork, but for the object whose end takes the handlers off the list again: without one
// they stay, as the library does.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(),
                                 void* object);

namespace {

// Nothing is locked before a fork: another thread may hold any lock while it waits for one that a
// host's own handler holds. So the child finds everything as it happened to be, and lets go of it.
void in_child() {
  mem_pools = MEM_POOLS::ABANDONED;
  mem_tbb_tracking_ended = true;
  mem_tracker_gate.abandon();
  mem_critical_section.start_anew_in_child();
  mem_abandon_kept_texts();
  mem_abandon_hook_switches();
  mem_abandon_parts();
  mem_forget_locks_held();
}

}  // namespace

void mem_register_fork_handlers() { __register_atfork(nullptr, nullptr, in_child, nullptr); }

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
