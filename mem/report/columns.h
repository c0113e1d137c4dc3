// The columns that the fileline and the subsystem report share.
#pragma once

#include "include/tuk_mem.h"

class MEM_REPORT_TEXT;

/// One counter of a record: its title and how it is printed.
struct MEM_COUNTER_COLUMN {
  char const* title;
  void (*print)(MEM_REPORT_TEXT& out, const MEMORY_TRACKER_BASE& record);
};

namespace MEM_COLUMN {
extern const MEM_COUNTER_COLUMN current_bytes;
extern const MEM_COUNTER_COLUMN max_bytes;
extern const MEM_COUNTER_COLUMN peak_bytes;
extern const MEM_COUNTER_COLUMN cumulative_bytes;
extern const MEM_COUNTER_COLUMN cumulative_requested_bytes;
extern const MEM_COUNTER_COLUMN cumulative_mismatched_bytes;
extern const MEM_COUNTER_COLUMN current_blocks;
extern const MEM_COUNTER_COLUMN max_blocks;
extern const MEM_COUNTER_COLUMN peak_blocks;
extern const MEM_COUNTER_COLUMN cumulative_blocks;
}  // namespace MEM_COLUMN
