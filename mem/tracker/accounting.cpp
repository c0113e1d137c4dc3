#include "mem/tracker/accounting.h"

#include <mutex>

#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/host/message.h"
#include "mem/manager/statistics.h"
#include "mem/records/block_bins.h"
#include "mem/records/counters.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/stack/stack_filter.h"
#include "mem/stack/unwinder.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_state.h"
#include "mem/timeline/module_timeline.h"
#include "mem/tracker/peaks.h"
#include "mem/tracker/sampling.h"

namespace {

// A larger block never counts as freed by the wrong thread: the allocator's thread caches, which
// the figure is about, don't hold it.
constexpr std::size_t largest_mismatched_block = 8128;

// Timeline indexes between two debug lines.
constexpr std::uint64_t reported_indexes = 8;

// Counts an event; whether it is one that takes a sample.
bool count_event() { return mem_module_snapshot_delay.divides(mem_snapshot_count.fetch_add(1)); }

[[gnu::cold, gnu::noinline]] void advance_timeline_index(std::int64_t total) {
  const std::uint64_t index = mem_estimated_timeline_idx.fetch_add(1);
  if (index % reported_indexes == 0)
    mem_tracker_debug("Memory tracking: at timeline index %llu with total memory %lld",
                      static_cast<unsigned long long>(index), static_cast<long long>(total));
}

void change_total(std::int64_t change, bool sample) {
  const std::int64_t total = mem_current_bytes.fetch_add(change) + change;
  if (sample) advance_timeline_index(total);
}

void charge_module(MEM_ADDRESS_TRACKER& site, std::size_t requested, std::size_t allocated) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_charge_block(mem_module_of(site), requested, allocated);
}

void credit_module(MEM_ADDRESS_TRACKER& site, std::size_t allocated) {
  const std::lock_guard modules(mem_module_tracker_lock);
  mem_credit_block(mem_module_of(site), allocated);
}

void charge_bins(void const* ptr, std::int64_t bytes) {
  const MEM_BLOCK_BINS bins = {MEM_USER_MEMORY_TRACKER::get_current_pbin_id(),
                               MEM_USER_MEMORY_TRACKER::get_most_recently_opened_pb_tag(),
                               mem_reset_count};
  mem_remember_block_bins(ptr, bins);
  mem_pbin_tracker->allocate(bytes, bins.bin);
  mem_pbin_tag_tracker->allocate(bytes, bins.tag);
}

// A block that was never charged to a bin is skipped. Of one from before a reset, the tag's charge
// is forgotten, while the bin still has it. Whether the block is younger than the last reset.
bool credit_bins(void const* ptr, std::int64_t bytes) {
  const std::optional<MEM_BLOCK_BINS> bins = mem_take_block_bins(ptr);
  if (!bins) return mem_reset_count == 0;
  mem_pbin_tracker->release(bytes, bins->bin);
  const bool after_reset = bins->reset_count == mem_reset_count;
  if (after_reset) mem_pbin_tag_tracker->release(bytes, bins->tag);
  return after_reset;
}

void mark_bins_as_peak() {
  mem_pbin_tracker->mark_as_peak();
  mem_pbin_tag_tracker->mark_as_peak();
}

bool is_mismatched(const MEM_BLOCK_ORIGIN& origin, std::uint32_t granularity,
                   std::size_t allocated) {
  return (granularity & MEM_TRACK_PER_FILELINE) != 0 && allocated <= largest_mismatched_block &&
         origin.thread != std::this_thread::get_id();
}

// A block nobody remembers (from before tracking, or of an untracked thread) is credited to the
// catch-all site, whose current figures can fall below zero.
MEM_ADDRESS_TRACKER& credit_site(const MEM_BLOCK_ORIGIN& origin, std::uint32_t granularity,
                                 std::size_t allocated) {
  const std::lock_guard trace(mem_trace_lock);
  MEM_ADDRESS_TRACKER& site = origin.site != nullptr ? *origin.site : mem_catch_all_site();
  if ((granularity & MEM_MASK_CHARGE_SITE) != 0) {
    mem_credit_block(site, allocated);
    if (origin.site != nullptr && is_mismatched(origin, granularity, allocated))
      site.cumulative_mismatched_bytes += allocated;
  }
  return site;
}

}  // namespace

// The captures stand in this function itself, and nothing here may become a tail call or be
// inlined into the hook: see the ignore depth.
[[gnu::noinline]] void mem_track_alloc(void const* ptr, std::size_t requested,
                                       std::size_t allocated) {
  const std::uint32_t granularity = mem_tracking_granularity;
  const bool sample = count_event();
  if ((granularity & MEM_MASK_FIND_SITE) != 0) {
    void const* frames[mem_deep_trace_depth];
    int skip = MEM_STACK_TRACE_IGNORE_DEPTH;
    int count = mem_tbb_unwinder->capture(frames, mem_trace_stages[0], skip, 0);
    const MEM_INSIDE_AS_MOUSE mouse;
    if (mem_tbb_tracking_ended) return;
    std::unique_lock trace(mem_trace_lock);
    MEM_ADDRESS_TRACKER* site = mem_filter_stack_trace(frames, count, trace);
    for (int stage = 1; stage < mem_trace_stage_count; ++stage) {
      const bool full = count == mem_trace_stages[stage - 1];
      if (!full || site == nullptr || !mem_is_catch_all(*site)) [[likely]]
        break;
      trace.unlock();
      skip += count;
      count = mem_tbb_unwinder->capture(frames, mem_trace_stages[stage], skip, 0);
      trace.lock();
      site = mem_filter_stack_trace(frames, count, trace);
    }
    if (site == nullptr) return;
    if ((granularity & MEM_MASK_CHARGE_SITE) != 0) mem_charge_block(*site, requested, allocated);
    trace.unlock();
    mem_remember_block(ptr, *site, (granularity & MEM_TRACK_PER_FILELINE) != 0);
    if ((granularity & MEM_TRACK_PER_LIBRARY) != 0) {
      charge_module(*site, requested, allocated);
      if (sample) mem_module_timeline->capture();
    }
  }
  const auto bytes = static_cast<std::int64_t>(allocated);
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != 0) {
    charge_bins(ptr, bytes);
    if (sample) mem_pbin_tag_snapshots->capture();
  }
  if (sample) mem_capture_companions(granularity);
  if ((granularity & MEM_MASK_STATISTICS) != 0) mem_pbin_stats.add_block(bytes);
  if ((granularity & MEM_MASK_TOTAL) != 0) change_total(bytes, sample);
}

[[gnu::noinline]] void mem_track_dealloc(void const* ptr, std::size_t allocated) {
  const std::uint32_t granularity = mem_tracking_granularity;
  // Every timeline holds the moment of every peak.
  const bool peak = (granularity & MEM_MASK_TOTAL) != 0 && mem_check_peak();
  const bool sample = count_event() || peak;
  // Only what was allocated since the last reset is in the total.
  bool in_total = true;
  if ((granularity & MEM_MASK_FIND_SITE) != 0) {
    const MEM_INSIDE_AS_MOUSE mouse;
    if (mem_tbb_tracking_ended) return;
    const MEM_BLOCK_ORIGIN origin = mem_take_block(ptr);
    in_total = origin.site != nullptr || mem_reset_count == 0;
    MEM_ADDRESS_TRACKER& site = credit_site(origin, granularity, allocated);
    if ((granularity & MEM_TRACK_PER_LIBRARY) != 0) {
      credit_module(site, allocated);
      if (sample) mem_module_timeline->capture();
    }
  }
  const auto bytes = static_cast<std::int64_t>(allocated);
  if ((granularity & MEM_MASK_STATISTICS) != 0) mem_pbin_stats.remove_block(bytes);
  if ((granularity & MEM_TRACK_PER_BIN_DETAILED) != 0) {
    if (peak) mark_bins_as_peak();
    if (sample) mem_pbin_tag_snapshots->capture();
    const bool after_reset = credit_bins(ptr, bytes);
    if ((granularity & MEM_MASK_FIND_SITE) == 0) in_total = after_reset;
  }
  if (sample) mem_capture_companions(granularity);
  if ((granularity & MEM_MASK_TOTAL) != 0) change_total(in_total ? -bytes : 0, sample);
}
