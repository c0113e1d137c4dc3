#include "mem/manager/statistics.h"

constinit MEM_PBIN_STATS mem_pbin_stats;

namespace {

void raise_to(std::atomic<std::int64_t>& field, std::int64_t value) noexcept {
  std::int64_t stored = field.load(std::memory_order_relaxed);
  while (stored < value && !field.compare_exchange_weak(stored, value, std::memory_order_relaxed)) {
  }
}

// Gives the enclosing region its peak back unless a concurrent raise got there first. One try is
// enough for that; only a field found at 0 is looked at again, which is all that a host's nested
// regions need.
void restore_outer_peak(std::atomic<std::int64_t>& field, std::int64_t saved) noexcept {
  std::int64_t found = 0;
  while (found == 0) {
    std::int64_t stored = field.load();
    if (stored >= saved) return;
    field.compare_exchange_strong(stored, saved);
    found = stored;
  }
}

}  // namespace

MEM_BASE_STATS MEM_ATOMIC_STATS::read() const noexcept { return {bytes.load(), count.load()}; }

void MEM_ATOMIC_STATS::store(const MEM_BASE_STATS& stats) noexcept {
  bytes = stats.bytes;
  count = stats.count;
}

void MEM_ATOMIC_STATS::raise(const MEM_BASE_STATS& stats) noexcept {
  raise_to(bytes, stats.bytes);
  raise_to(count, stats.count);
}

void MEM_PBIN_STATS::add_block(std::int64_t bytes) noexcept {
  const MEM_BASE_STATS current = {global_current.bytes.fetch_add(bytes) + bytes,
                                  global_current.count.fetch_add(1) + 1};
  global_peak.raise(current);
  local_peak.raise(current);
}

void MEM_PBIN_STATS::remove_block(std::int64_t bytes) noexcept {
  global_current.bytes -= bytes;
  global_current.count -= 1;
}

void MEM_PBIN_STATS::reset() noexcept {
  for (MEM_ATOMIC_STATS* stats : {&global_current, &global_peak, &local_peak}) stats->store({0, 0});
}

MEM_BASE_STATS mem_get_global_current() noexcept { return mem_pbin_stats.global_current.read(); }
MEM_BASE_STATS mem_get_global_peak() noexcept { return mem_pbin_stats.global_peak.read(); }
MEM_BASE_STATS mem_get_local_peak() noexcept { return mem_pbin_stats.local_peak.read(); }

MEM_STATS mem_get_stats() noexcept {
  return {mem_get_global_current(), mem_get_global_peak(), mem_get_local_peak()};
}

std::int64_t mem_get_current_bytes() noexcept { return mem_pbin_stats.global_current.bytes; }

MEM_BASE_STATS mem_enter_local_region() noexcept {
  const MEM_BASE_STATS outer = mem_pbin_stats.local_peak.read();
  mem_pbin_stats.local_peak.store(mem_pbin_stats.global_current.read());
  return outer;
}

MEM_BASE_STATS mem_exit_local_region(const MEM_BASE_STATS& saved) noexcept {
  const MEM_BASE_STATS peak = mem_pbin_stats.local_peak.read();
  restore_outer_peak(mem_pbin_stats.local_peak.bytes, saved.bytes);
  restore_outer_peak(mem_pbin_stats.local_peak.count, saved.count);
  return peak;
}
