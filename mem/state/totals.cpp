#include "mem/state/totals.h"

constinit MEM_SHARED_TOTAL mem_snapshot_count{&MEM_THREAD_LINE::event_room};
constinit MEM_SHARED_TOTAL mem_current_bytes{&MEM_THREAD_LINE::byte_room};
constinit std::atomic<std::uint64_t> mem_estimated_timeline_idx{0};
constinit std::atomic<std::uint64_t> mem_estimated_timeline_idx_at_peak{0};
constinit std::atomic<std::uint32_t> mem_reset_count{0};
constinit std::atomic<std::uint64_t> mem_abandoned_events{0};
constinit MEM_PROFILER_STATS mem_profiler_stats;

void MEM_PROFILER_STATS::count_alloc(std::size_t requested, std::size_t allocated) {
  num_allocs += 1;
  requested_total += requested;
  allocated_total += allocated;
  requested_outstanding += requested;
  allocated_outstanding += allocated;
}

void MEM_PROFILER_STATS::count_dealloc(std::size_t requested, std::size_t allocated) {
  num_deallocs += 1;
  requested_freed += requested;
  allocated_freed += allocated;
  requested_outstanding -= requested;
  allocated_outstanding -= allocated;
}

void mem_reset_totals() {
  mem_current_bytes.set(0);
  mem_estimated_timeline_idx = 0;
  for (auto* counter :
       {&mem_profiler_stats.num_allocs, &mem_profiler_stats.num_deallocs,
        &mem_profiler_stats.requested_total, &mem_profiler_stats.allocated_total,
        &mem_profiler_stats.requested_freed, &mem_profiler_stats.allocated_freed,
        &mem_profiler_stats.requested_outstanding, &mem_profiler_stats.allocated_outstanding})
    *counter = 0;
}

constinit const MEM_PART mem_totals_part(MEM_CREATE{mem_nothing},  // zero since load
                                         MEM_RESET{[] {
                                           mem_current_bytes.set(0);
                                           ++mem_reset_count;
                                         }},
                                         MEM_FREE{mem_nothing},  // plain counters
                                         MEM_ABANDON{[] {        // the parent's, as they were
                                           mem_snapshot_count.abandon();
                                           mem_current_bytes.abandon();
                                         }},
                                         MEM_FOLLOW{[] {
                                           mem_reset_totals();
                                           mem_snapshot_count.set(0);
                                           mem_estimated_timeline_idx_at_peak = 0;
                                           mem_reset_count = 0;
                                           mem_abandoned_events = 0;
                                         }});
