#include "mem/allocator/hook_switch.h"

#include <mutex>
#include <utility>

#include "mem/base/signals_held.h"
#include "mem/base/spin_lock.h"

namespace {
constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::HOOK_SWITCHES> lock;
}

// No signal handler runs meanwhile: it might switch, too.
void MEM_HOOK_SWITCH::turn(bool on, void (*change)(bool on)) {
  const MEM_SIGNALS_HELD signals;
  const std::lock_guard guard(lock);
  if (std::exchange(m_is_on, on) != on) change(on);
}

void mem_abandon_hook_switches() { lock.abandon(); }
