#include "mem/base/lock_order.h"

#ifdef TUK_MEM_CHECK_LOCK_ORDER
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// A bit per lock that this thread holds.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::uint32_t held = 0;

std::uint32_t bit_of(MEM_LOCK_ORDER lock) { return 1U << static_cast<int>(lock); }

}  // namespace

void mem_note_lock_taken(MEM_LOCK_ORDER lock) {
  const std::uint32_t bit = bit_of(lock);
  if (held >= bit) {
    std::fprintf(stderr, "lock order: lock %d taken while %d is held\n", static_cast<int>(lock),
                 std::bit_width(held) - 1);
    std::abort();
  }
  held |= bit;
}

void mem_note_lock_released(MEM_LOCK_ORDER lock) { held &= ~bit_of(lock); }

void mem_forget_locks_held() { held = 0; }
#endif
