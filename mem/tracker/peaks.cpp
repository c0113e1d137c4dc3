#include "mem/tracker/peaks.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_map>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/host_thread.h"
#include "mem/base/static_storage.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/host/message.h"
#include "mem/manager/statistics.h"
#include "mem/paths/call_paths.h"
#include "mem/records/site_map.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_visit.h"

namespace {

constexpr std::int64_t first_doubling = 1024;

// Relaxed: two threads may both see a new peak and both record it, one after the other.
constinit std::atomic<std::int64_t> thresholded_peak_memory{0};
constinit std::atomic<std::int64_t> next_peak_memory{first_doubling};
constinit std::atomic<std::int64_t> flushed_peak_memory{0};

// By address, since it outlives a reset, which replaces all records; of those in use it also knows
// which it is of, since modules that came and went may have had the same addresses.
struct SITE_PEAK {
  std::int64_t bytes;
  std::int32_t blocks;
  MEM_ADDRESS_TRACKER const* site;  // null after a reset: of whatever has the address now
};
using FLUSHED_PEAK_DATA =
    std::unordered_multimap<void const*, SITE_PEAK, std::hash<void const*>,
                            std::equal_to<void const*>,
                            MEM_BOOKKEEPING_ALLOCATOR<std::pair<void const* const, SITE_PEAK>>>;

// Guarded by mem_trace_lock; empty until the first flush. Constructed then.
constinit MEM_STATIC_STORAGE<FLUSHED_PEAK_DATA> flushed_peak_storage;
constinit FLUSHED_PEAK_DATA* mem_flushed_peak_data = nullptr;
constinit std::uint64_t timeline_idx_at_flushed_peak = 0;

std::int64_t step_size() { return static_cast<std::int64_t>(mem_fileline_peak_snapshot_threshold); }

// The next peak is recorded where the total has crossed another step or has doubled, whichever
// comes first. Kept as one figure, so that the check at every release divides nothing.
void await_next_peak(std::int64_t peak, std::int64_t doubled) {
  const std::int64_t step = step_size();
  thresholded_peak_memory = peak;
  next_peak_memory = std::min(doubled, (peak / step + 1) * step);
}

// A total that is itself a multiple of the step is announced as the next peak, though that needs
// another step: readers of the message know it so.
std::int64_t announced_next_peak(std::int64_t total) {
  const std::int64_t rounding = total + step_size() - 1;
  return std::min(2 * total, rounding - rounding % step_size());
}

void keep_current_as_peak() {
  const MEM_INSIDE_AS_CAT cat;
  if (mem_tbb_tracking_ended) return;
  const std::lock_guard trace(mem_trace_lock);
  mem_for_each_site([](void const*, MEM_ADDRESS_TRACKER& site) {
    site.peak_blocks = site.current_blocks;
    site.peak_bytes = site.current_bytes;
  });
  mem_keep_current_call_paths_as_peak();
  mem_estimated_timeline_idx_at_peak = mem_estimated_timeline_idx.load();
}

[[gnu::cold, gnu::noinline]] void record_peak(std::int64_t total) {
  const MEM_CANCELLATION_HELD not_cancelled;
  await_next_peak(total, 2 * total);
  mem_tracker_debug(
      "Memory tracking: recording peak bytes at %lld bytes (timeline index %llu), next peak at >= "
      "%lld bytes",
      static_cast<long long>(total),
      static_cast<unsigned long long>(mem_estimated_timeline_idx.load()),
      static_cast<long long>(announced_next_peak(total)));
  keep_current_as_peak();
}

// What has been claimed is more than the total where threads have room left.
[[gnu::noinline]] bool record_if_peak() {
  std::int64_t total = 0;
  {
    const MEM_INSIDE_AS_CAT cat;
    mem_current_bytes.settle();
    total = mem_current_bytes.claimed();
  }
  if (total < mem_next_peak()) return false;
  record_peak(total);
  return true;
}

void flush_site_peaks() {
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  const std::lock_guard trace(mem_trace_lock);
  if (mem_flushed_peak_data == nullptr) {
    mem_flushed_peak_data = flushed_peak_storage.construct();
    mem_flushed_peak_data->max_load_factor(1.0F);
  }
  timeline_idx_at_flushed_peak = mem_estimated_timeline_idx_at_peak;
  mem_flushed_peak_data->clear();
  mem_flushed_peak_data->reserve(mem_address_tracker_map->size() + mem_retired_sites->size());
  mem_for_each_site([](void const* address, const MEM_ADDRESS_TRACKER& site) {
    if (site.peak_bytes != 0)
      mem_flushed_peak_data->emplace(
          address, SITE_PEAK{site.peak_bytes, static_cast<std::int32_t>(site.peak_blocks), &site});
  });
}

void flush_recorded_peak() {
  const std::int64_t peak = thresholded_peak_memory;
  if (peak <= flushed_peak_memory) return;
  flushed_peak_memory = peak;
  mem_pbin_tracker->flush_peak();
  mem_pbin_tag_tracker->flush_peak();
  flush_site_peaks();
  mem_flush_call_path_peaks();
}

// False where nothing can be flushed: at the end, or inside the tracker.
bool flush_if_admitted() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_tbb_tracking_ended) return false;
  flush_recorded_peak();
  return true;
}

// With fast leak checking alone no peak is recorded: the statistics know the highest total.
void flush_global_peak() {
  const std::int64_t peak = mem_get_global_peak().bytes;
  mem_tracker_debug("Memory tracking: memory peak was reset from %lld",
                    static_cast<long long>(peak));
  flushed_peak_memory = std::max(flushed_peak_memory.load(), peak);
  mem_pbin_stats.global_peak.store({0, 0});
}

bool has_address_now(MEM_ADDRESS_TRACKER const* site, void const* address) {
  const auto now = mem_address_tracker_map->find(address);
  return now != mem_address_tracker_map->end() && &now->second == site;
}

// Null when none was flushed.
SITE_PEAK const* flushed_peak_of(MEM_ADDRESS_TRACKER const* site, void const* address) {
  const auto [first, last] = mem_flushed_peak_data->equal_range(address);
  const auto found = std::find_if(first, last, [&](const auto& flushed) {
    SITE_PEAK const& peak = flushed.second;
    return peak.site == site || (peak.site == nullptr && has_address_now(site, address));
  });
  return found == last ? nullptr : &found->second;
}

void show_flushed_peak(MEMORY_TRACKER_BASE& figures, MEM_ADDRESS_TRACKER const* site,
                       void const* address) {
  SITE_PEAK const* const flushed = flushed_peak_of(site, address);
  figures.peak_bytes = flushed == nullptr ? 0 : flushed->bytes;
  figures.peak_blocks = flushed == nullptr ? 0 : static_cast<std::uint32_t>(flushed->blocks);
}

void restore_site_peaks() {
  const std::lock_guard trace(mem_trace_lock);
  mem_estimated_timeline_idx_at_peak = timeline_idx_at_flushed_peak;
  mem_for_each_site([](void const* address, MEM_ADDRESS_TRACKER& site) {
    show_flushed_peak(site, &site, address);
  });
}

// The records are about to go. Of a module that is gone nothing is left then to get a peak back.
void part_peaks_from_records() {
  const std::lock_guard trace(mem_trace_lock);
  if (mem_flushed_peak_data == nullptr) return;
  std::erase_if(*mem_flushed_peak_data, [](const auto& flushed) {
    SITE_PEAK const& peak = flushed.second;
    return peak.site != nullptr && !has_address_now(peak.site, flushed.first);
  });
  for (auto& [address, peak] : *mem_flushed_peak_data) peak.site = nullptr;
}

}  // namespace

std::int64_t mem_flushed_peak_memory() { return flushed_peak_memory; }

std::int64_t mem_next_peak() { return next_peak_memory.load(std::memory_order_relaxed); }

bool mem_check_peak() {
  if (mem_current_bytes.claimed() < mem_next_peak()) [[likely]]
    return false;
  return record_if_peak();
}

void mem_tbb_tracking_flush_peak() {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  if (mem_tbb_tracker_inited && !flush_if_admitted()) return;
  const std::uint32_t granularity = mem_tracking_granularity;
  if ((granularity & MEM_MASK_TOTAL) != 0)
    mem_tracker_debug("Memory tracking: memory threshold peak was reset from %lld",
                      static_cast<long long>(thresholded_peak_memory));
  else if (granularity == MEM_TRACK_LEAKS_FAST)
    flush_global_peak();
  mem_rearm_peak_detection();
  mem_user_snapshot_tracking_data();
}

void mem_rearm_peak_detection() { await_next_peak(0, first_doubling); }

bool mem_flushed_peak_is_higher() {
  return mem_flushed_peak_data != nullptr && flushed_peak_memory >= thresholded_peak_memory;
}

void mem_show_flushed_peak(MEM_SITE_SNAPSHOT& sites) {
  const std::lock_guard trace(mem_trace_lock);
  sites.show_another_peak(timeline_idx_at_flushed_peak, [](MEM_SITE_ROW& row) {
    show_flushed_peak(row.counters, row.site, row.address);
  });
}

void mem_restore_flushed_peak() {
  if (!mem_flushed_peak_is_higher()) return;
  mem_pbin_tracker->restore_peak();
  mem_pbin_tag_tracker->restore_peak();
  restore_site_peaks();
  mem_restore_call_path_peaks();
}

constinit const MEM_PART mem_peaks_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_rearm_peak_detection(); }}, MEM_RESET{[] {
      mem_rearm_peak_detection();
      part_peaks_from_records();
    }},
    MEM_FREE{[] { mem_destroy(mem_flushed_peak_data); }},
    MEM_ABANDON{[] { mem_abandon(mem_flushed_peak_data); }}, MEM_FOLLOW{[] {
      flushed_peak_memory = 0;
      mem_rearm_peak_detection();
    }});
