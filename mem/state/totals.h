// The process-wide counters of the tracker. All zero at load, and most again during static
// initialisation.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "mem/base/part.h"
#include "mem/state/shared_total.h"

/// Accounted events, allocations and releases. Rooms end at the next sample.
extern MEM_SHARED_TOTAL mem_snapshot_count;

/// Allocated bytes of tracked live blocks (granularity 2, 4 or 8). Rooms end at the next peak.
extern MEM_SHARED_TOTAL mem_current_bytes;

/// Index of the next sample of the timelines.
extern std::atomic<std::uint64_t> mem_estimated_timeline_idx;

/// mem_estimated_timeline_idx at the last recorded peak.
extern std::atomic<std::uint64_t> mem_estimated_timeline_idx_at_peak;

/// How often the records have been reset; changes inside the cat section. What was allocated before
/// the last time is in none of the figures that a reset forgets.
extern std::atomic<std::uint32_t> mem_reset_count;

/// Events that could not be accounted because the tracker itself ran out of memory.
extern std::atomic<std::uint64_t> mem_abandoned_events;

/// The memory traffic of threads that are blocked or inside the tracker: what profiling itself
/// costs. A release only tells the allocated size, which therefore stands for the requested one.
struct MEM_PROFILER_STATS {
  std::atomic<std::uint64_t> num_allocs{0};
  std::atomic<std::uint64_t> num_deallocs{0};
  std::atomic<std::uint64_t> requested_total{0};
  std::atomic<std::uint64_t> allocated_total{0};
  std::atomic<std::uint64_t> requested_freed{0};
  std::atomic<std::uint64_t> allocated_freed{0};
  std::atomic<std::uint64_t> requested_outstanding{0};
  std::atomic<std::uint64_t> allocated_outstanding{0};

  void count_alloc(std::size_t requested, std::size_t allocated);
  void count_dealloc(std::size_t requested, std::size_t allocated);
};

extern MEM_PROFILER_STATS mem_profiler_stats;

/// Zeroes mem_current_bytes, mem_estimated_timeline_idx and mem_profiler_stats. Before anything is
/// tracked.
void mem_reset_totals();

/// Their life: a reset forgets the total and counts itself.
extern const MEM_PART mem_totals_part;
