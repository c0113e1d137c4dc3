// Byte counters of bins or tags, by id.
#pragma once

#include <oneapi/tbb/concurrent_vector.h>

#include <atomic>
#include <cstdint>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"

/// The counters of one id; bytes.
struct MEM_PBIN_TRACKER_ENTRY {
  std::atomic<std::int64_t> current{0};       ///< live blocks charged to the id
  std::atomic<std::int64_t> max{0};           ///< highest value that current has reached
  std::atomic<std::int64_t> cumulative{0};    ///< ever allocated
  std::atomic<std::int64_t> peak{0};          ///< current at the process's last recorded peak
  std::atomic<std::int64_t> flushed_peak{0};  ///< peak at the last peak flush
};

/// Counter i belongs to id i. Any number of threads count at once; the rare writers that see all
/// counters at one moment wait for those inside and hold new ones off. Nobody sleeps.
class MEM_PBIN_TRACKER_MAP {
 public:
  using ENTRY = MEM_PBIN_TRACKER_ENTRY;

  /// Charges an allocation. Grows the array to id + 1 entries where needed; may throw
  /// std::bad_alloc then.
  void allocate(std::int64_t bytes, std::uint32_t id);
  /// Credits a release. An id beyond the array is skipped: a reset may have emptied it since.
  void release(std::int64_t bytes, std::uint32_t id);

  /// Copies current into peak, peak into flushed peak, flushed peak into peak, for every entry.
  void mark_as_peak();
  void flush_peak();
  void restore_peak();
  /// Forgets every entry.
  void clear();

  /// Entries there are now. Entries 0 to size() - 1 may be read at any time, at the price of fields
  /// of different moments.
  std::uint32_t size() const { return m_size.load(std::memory_order_acquire); }
  const ENTRY& operator[](std::uint32_t id) const { return m_entries[id]; }

  /// Alone inside for a scope: no counter changes.
  class WRITER {
   public:
    explicit WRITER(MEM_PBIN_TRACKER_MAP& map) : m_map(map) {
      mem_note_lock_taken(MEM_LOCK_ORDER::BIN_COUNTERS);
      m_map.enter_as_writer();
    }
    WRITER(const WRITER&) = delete;
    WRITER& operator=(const WRITER&) = delete;
    ~WRITER() {
      m_map.leave_as_writer();
      mem_note_lock_released(MEM_LOCK_ORDER::BIN_COUNTERS);
    }

   private:
    MEM_PBIN_TRACKER_MAP& m_map;
  };

 private:
  class COUNTER {
   public:
    explicit COUNTER(MEM_PBIN_TRACKER_MAP& map) : m_map(map) { m_map.enter_as_counter(); }
    COUNTER(const COUNTER&) = delete;
    COUNTER& operator=(const COUNTER&) = delete;
    ~COUNTER() { m_map.leave_as_counter(); }

   private:
    MEM_PBIN_TRACKER_MAP& m_map;
  };

  void enter_as_counter();
  void leave_as_counter();
  void enter_as_writer();
  void leave_as_writer();
  void grow_to(std::uint32_t size);
  void copy_in_every_entry(std::atomic<std::int64_t> ENTRY::*from,
                           std::atomic<std::int64_t> ENTRY::*to);

  // Its blocks never move, so a counter stays valid while another thread grows the array.
  tbb::concurrent_vector<ENTRY, MEM_BOOKKEEPING_ALLOCATOR<ENTRY>> m_entries;
  std::atomic<std::uint32_t> m_size{0};             // entries ready for use
  std::atomic<std::uint64_t> m_readers_writers{0};  // low half: counters inside; high: writers
  std::atomic<std::uint32_t> m_writers_waiting{0};
  MEM_SPIN_LOCK<MEM_LOCK_ORDER::BIN_GROWTH> m_growth_mutex;
};

/// By bin id and by tag id. From initialisation to cleanup.
extern MEM_PBIN_TRACKER_MAP* mem_pbin_tracker;
extern MEM_PBIN_TRACKER_MAP* mem_pbin_tag_tracker;
extern const MEM_PART mem_bin_counters_part;
extern const MEM_PART mem_tag_counters_part;
