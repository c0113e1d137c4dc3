// The counter updates that a site's and a module's record share. Relies on mem/base and
// mem/state, like everything in this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>

#include "include/tuk_mem.h"

/// One more block. Hold the lock of the map the record lives in.
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

/// Where a record stands in a report: the largest peak comes first, ties go by current, then by
/// cumulative bytes.
inline auto mem_report_order(const MEMORY_TRACKER_BASE& record) {
  return std::make_tuple(-record.peak_bytes, -record.current_bytes,
                         -static_cast<std::int64_t>(record.cumulative_bytes));
}
