// The report per allocation site.
#include <mutex>
#include <ostream>

#include "include/tuk_mem.h"
#include "mem/records/site_map.h"
#include "mem/report/columns.h"
#include "mem/report/dump_timing.h"
#include "mem/report/site_order.h"
#include "mem/state/thread_flags.h"
#include "mem/state/totals.h"

namespace {

const MEM_COUNTER_COLUMN counter_columns[] = {
    MEM_COLUMN::current_bytes,
    MEM_COLUMN::max_bytes,
    MEM_COLUMN::peak_bytes,
    MEM_COLUMN::cumulative_bytes,
    MEM_COLUMN::cumulative_requested_bytes,
    MEM_COLUMN::cumulative_mismatched_bytes,
    MEM_COLUMN::current_blocks,
    MEM_COLUMN::max_blocks,
    MEM_COLUMN::peak_blocks,
    MEM_COLUMN::cumulative_blocks,
};

void write_header(std::ostream& out) {
  out << "Address";
  for (const MEM_COUNTER_COLUMN& column : counter_columns) out << '\t' << column.title;
  out << "\tModule\tFile\tLine\tFunction" << std::endl;
}

// The catch-all row is always there; an address that was never charged has none.
bool is_listed(void const* address, const MEM_ADDRESS_TRACKER& site) {
  return address == nullptr || site.cumulative_bytes != 0;
}

void write_row(std::ostream& out, void const* address, const MEM_ADDRESS_TRACKER& site) {
  if (address == nullptr)
    out << "OTHER";
  else
    out << address;
  for (const MEM_COUNTER_COLUMN& column : counter_columns) {
    out << '\t';
    column.print(out, site);
  }
  const MEM_ADDRESS_INFO& info = site.address_info;
  out << '\t' << info.module_name_buffer << '\t' << info.file_name_buffer << '\t' << info.line
      << '\t' << info.function_name_buffer << '\n';
}

}  // namespace

bool mem_dump_tbb_fileline_tracking(std::ostream& out) {
  const MEM_DUMP_TIMING timing;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  out << "MEM: TBB Fileline Tracking Memory Snapshot. [at index "
      << mem_estimated_timeline_idx_at_peak << "]" << std::endl
      << std::endl;
  write_header(out);
  {
    const std::lock_guard trace(mem_trace_lock);
    for (void const* address : mem_sites_by_peak()) {
      const MEM_ADDRESS_TRACKER& site = mem_address_tracker_map->at(address);
      if (is_listed(address, site)) write_row(out, address, site);
    }
  }
  timing.write(out);
  return true;
}
