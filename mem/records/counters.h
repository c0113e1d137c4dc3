// The counter updates that a site's and a module's record share. Relies on mem/base and
// mem/state, like everything in this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>

#include "include/tuk_mem.h"
#include "mem/base/guard_word.h"

/// Holds one record's figures for a scope. Inside the tracker's lock, where a cat needs none.
class MEM_RECORD_GUARDED : MEM_GUARDED {
 public:
  explicit MEM_RECORD_GUARDED(MEMORY_TRACKER_BASE& record) : MEM_GUARDED(record.guard) {}
};

/// One more block. Hold the record, as for the next two: by its guard, or a module's by
/// mem_module_tracker_lock.
inline void mem_charge_block(MEMORY_TRACKER_BASE& record, std::size_t requested,
                             std::size_t allocated) {
  record.current_blocks += 1;
  if (static_cast<std::int32_t>(record.current_blocks) >
      static_cast<std::int32_t>(record.max_blocks))
    record.max_blocks = record.current_blocks;
  record.cumulative_blocks += 1;
  record.current_bytes += static_cast<std::int64_t>(allocated);
  if (record.current_bytes > record.max_bytes) record.max_bytes = record.current_bytes;
  record.cumulative_bytes += allocated;
  record.cumulative_requested_bytes += requested;
}

/// One block fewer. Maxima and cumulative figures stay.
inline void mem_credit_block(MEMORY_TRACKER_BASE& record, std::size_t allocated) {
  record.current_blocks -= 1;
  record.current_bytes -= static_cast<std::int64_t>(allocated);
}

/// Copies the figures, and leaves the guard alone, which others try to take meanwhile.
inline void mem_copy_figures(const MEMORY_TRACKER_BASE& from, MEMORY_TRACKER_BASE& to) {
  to.current_blocks = from.current_blocks;
  to.max_blocks = from.max_blocks;
  to.peak_blocks = from.peak_blocks;
  to.cumulative_blocks = from.cumulative_blocks;
  to.current_bytes = from.current_bytes;
  to.max_bytes = from.max_bytes;
  to.peak_bytes = from.peak_bytes;
  to.cumulative_bytes = from.cumulative_bytes;
  to.cumulative_requested_bytes = from.cumulative_requested_bytes;
  to.cumulative_mismatched_bytes = from.cumulative_mismatched_bytes;
}

/// Where a record stands in a report: the largest peak comes first, ties go by current, then by
/// cumulative bytes.
inline auto mem_report_order(const MEMORY_TRACKER_BASE& record) {
  return std::make_tuple(-record.peak_bytes, -record.current_bytes,
                         -static_cast<std::int64_t>(record.cumulative_bytes));
}
