#include "mem/bins/pbin_tracker_map.h"

#include <mutex>
#include <thread>

#include "mem/base/static_storage.h"

constinit MEM_PBIN_TRACKER_MAP* mem_pbin_tracker = nullptr;
constinit MEM_PBIN_TRACKER_MAP* mem_pbin_tag_tracker = nullptr;

namespace {

constexpr std::uint64_t one_counter = 1;
constexpr std::uint64_t one_writer = 1ULL << 32;

constinit MEM_STATIC_STORAGE<MEM_PBIN_TRACKER_MAP> bin_storage;
constinit MEM_STATIC_STORAGE<MEM_PBIN_TRACKER_MAP> tag_storage;

}  // namespace

void MEM_PBIN_TRACKER_MAP::allocate(std::int64_t bytes, std::uint32_t id) {
  const COUNTER inside(*this);
  if (id >= size()) [[unlikely]]
    grow_to(id + 1);
  ENTRY& entry = m_entries[id];
  const std::int64_t current = entry.current.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  std::int64_t max = entry.max.load(std::memory_order_relaxed);
  while (current > max &&
         !entry.max.compare_exchange_weak(max, current, std::memory_order_relaxed)) {
  }
  entry.cumulative.fetch_add(bytes, std::memory_order_relaxed);
}

void MEM_PBIN_TRACKER_MAP::release(std::int64_t bytes, std::uint32_t id) {
  const COUNTER inside(*this);
  if (id < size()) m_entries[id].current.fetch_sub(bytes, std::memory_order_relaxed);
}

void MEM_PBIN_TRACKER_MAP::mark_as_peak() { copy_in_every_entry(&ENTRY::current, &ENTRY::peak); }
void MEM_PBIN_TRACKER_MAP::flush_peak() { copy_in_every_entry(&ENTRY::peak, &ENTRY::flushed_peak); }
void MEM_PBIN_TRACKER_MAP::restore_peak() {
  copy_in_every_entry(&ENTRY::flushed_peak, &ENTRY::peak);
}

void MEM_PBIN_TRACKER_MAP::clear() {
  const WRITER alone(*this);
  m_size.store(0, std::memory_order_release);
  m_entries.clear();
}

void MEM_PBIN_TRACKER_MAP::copy_in_every_entry(std::atomic<std::int64_t> ENTRY::*from,
                                               std::atomic<std::int64_t> ENTRY::*to) {
  const WRITER alone(*this);
  for (std::uint32_t id = 0; id < size(); ++id)
    (m_entries[id].*to)
        .store((m_entries[id].*from).load(std::memory_order_relaxed), std::memory_order_relaxed);
}

// A large jump of ids fills in zeroed entries between.
void MEM_PBIN_TRACKER_MAP::grow_to(std::uint32_t wanted) {
  const std::lock_guard growth(m_growth_mutex);
  if (size() >= wanted) return;
  m_entries.grow_to_at_least(wanted);
  m_size.store(wanted, std::memory_order_release);
}

void MEM_PBIN_TRACKER_MAP::enter_as_counter() {
  for (;; std::this_thread::yield()) {
    if (m_writers_waiting.load() != 0) continue;
    if (m_readers_writers.fetch_add(one_counter) < one_writer) return;
    m_readers_writers.fetch_sub(one_counter);
  }
}

void MEM_PBIN_TRACKER_MAP::leave_as_counter() { m_readers_writers.fetch_sub(one_counter); }

void MEM_PBIN_TRACKER_MAP::enter_as_writer() {
  for (;; std::this_thread::yield()) {
    m_writers_waiting.fetch_add(1);
    const bool alone = m_readers_writers.fetch_add(one_writer) == 0;
    if (!alone) m_readers_writers.fetch_sub(one_writer);
    m_writers_waiting.fetch_sub(1);
    if (alone) return;
  }
}

void MEM_PBIN_TRACKER_MAP::leave_as_writer() { m_readers_writers.fetch_sub(one_writer); }

constinit const MEM_PART mem_bin_counters_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_pbin_tracker = bin_storage.construct(); }},
    MEM_RESET{mem_nothing},  // bins are counted over the whole run
    MEM_FREE{[] { mem_destroy(mem_pbin_tracker); }},
    MEM_ABANDON{[] { mem_abandon(mem_pbin_tracker); }});

constinit const MEM_PART mem_tag_counters_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_pbin_tag_tracker = tag_storage.construct(); }},
    MEM_RESET{[] { mem_pbin_tag_tracker->clear(); }},
    MEM_FREE{[] { mem_destroy(mem_pbin_tag_tracker); }},
    MEM_ABANDON{[] { mem_abandon(mem_pbin_tag_tracker); }});
