// What every accounted event writes, together on one cache line.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/base/static_storage.h"
#include "mem/state/cat_mouse_lock.h"

/// Two threads that account events hand this line to each other. With a line for each of its parts
/// they would hand over five, and with chance neighbours still more: a pair of the churn benchmark
/// on two threads took about 480 ns with one line, 540 ns with separate ones, 650 ns as the linker
/// placed them. Its parts are named where they belong: the counters in totals.h, the trace lock in
/// records/site_map.h.
struct alignas(64) MEM_HOT_LINE {
  std::atomic<std::uint64_t> snapshot_count{0};
  MEM_STATIC_STORAGE<CAT_MOUSE_LOCK_A> cat_mouse_lock;
  MEM_SPIN_LOCK<MEM_LOCK_ORDER::SITES> trace_lock;
  std::atomic<std::int64_t> current_bytes{0};
};
static_assert(sizeof(MEM_HOT_LINE) == 64);

extern MEM_HOT_LINE mem_hot_line;
