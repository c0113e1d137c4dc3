// The figures of all sites in one consistent moment, for whoever writes a report of them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/records/site_map.h"

/// One site: its counters are copied, its texts stay where they are.
struct MEM_SITE_ROW {
  void const* address;  ///< null for the catch-all
  MEMORY_TRACKER_BASE counters;
  MEM_ADDRESS_TRACKER const* site;  ///< its texts; the counters go on there

  bool is_catch_all() const { return address == nullptr; }
  const MEM_ADDRESS_INFO& info() const { return site->address_info; }
};

/// Taken alone inside the tracker's lock, read without: the texts stay for as long as the snapshot
/// lives, also when the tracker forgets its records meanwhile. About a hundred bytes a row, and
/// nothing comes from the hooked allocator.
class MEM_SITE_SNAPSHOT {
 public:
  using ROWS = std::vector<MEM_SITE_ROW, MEM_BOOKKEEPING_ALLOCATOR<MEM_SITE_ROW>>;

  /// Copies every record, in no order. Any thread; without a row before initialisation, after
  /// cleanup, and on a thread that stands in the tracker's lock, which is refused.
  MEM_SITE_SNAPSHOT();

  bool is_refused() const { return m_is_refused; }
  const ROWS& rows() const { return m_rows; }
  /// The timeline index of the last recorded peak, in the same moment.
  std::uint64_t index_at_peak() const { return m_index_at_peak; }

  /// Puts other figures for the recorded peak: `peak_of` changes a row's.
  template <class PEAK_OF>
  void show_another_peak(std::uint64_t index_at_peak, PEAK_OF peak_of) {
    m_index_at_peak = index_at_peak;
    for (MEM_SITE_ROW& row : m_rows) peak_of(row);
  }

  /// Largest peak first; ties by current bytes, then by cumulative bytes, then by address.
  void sort_by_peak();

 private:
  ROWS m_rows;
  std::optional<MEM_SITES_HELD> m_texts;
  std::uint64_t m_index_at_peak = 0;
  bool m_is_refused = false;
};
