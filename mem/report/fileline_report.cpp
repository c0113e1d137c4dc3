// The report per allocation site.
#include "include/tuk_mem.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/columns.h"
#include "mem/report/dump_timing.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"
#include "mem/state/thread_flags.h"

namespace {

constexpr const MEM_COUNTER_COLUMN* counter_columns[] = {
    &MEM_COLUMN::current_bytes,
    &MEM_COLUMN::max_bytes,
    &MEM_COLUMN::peak_bytes,
    &MEM_COLUMN::cumulative_bytes,
    &MEM_COLUMN::cumulative_requested_bytes,
    &MEM_COLUMN::cumulative_mismatched_bytes,
    &MEM_COLUMN::current_blocks,
    &MEM_COLUMN::max_blocks,
    &MEM_COLUMN::peak_blocks,
    &MEM_COLUMN::cumulative_blocks,
};

void write_header(MEM_REPORT_TEXT& out) {
  out << "Address";
  for (const MEM_COUNTER_COLUMN* column : counter_columns) out << '\t' << column->title;
  out << "\tModule\tFile\tLine\tFunction\n";
}

// The catch-all row is always there; an address that was never charged has none.
bool is_listed(const MEM_SITE_ROW& row) {
  return row.is_catch_all() || row.counters.cumulative_bytes != 0;
}

void write_row(MEM_REPORT_TEXT& out, const MEM_SITE_ROW& row) {
  if (row.is_catch_all())
    out << "OTHER";
  else
    out << row.address;
  for (const MEM_COUNTER_COLUMN* column : counter_columns) {
    out << '\t';
    column->print(out, row.counters);
  }
  const MEM_ADDRESS_INFO& info = row.info();
  out << '\t' << info.module_name_buffer << '\t' << info.file_name_buffer << '\t' << info.line
      << '\t' << info.function_name_buffer << '\n';
}

}  // namespace

void mem_write_fileline(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                        const MEM_DUMP_TIMING& timing) {
  MEM_REPORT_TEXT out(sink);
  out << "MEM: TBB Fileline Tracking Memory Snapshot. [at index " << sites.index_at_peak()
      << "]\n\n";
  write_header(out);
  for (const MEM_SITE_ROW& row : sites.rows())
    if (is_listed(row)) write_row(out, row);
  timing.write(out);
  out.flush();
}

bool mem_dump_tbb_fileline_tracking(std::ostream& stream) {
  const MEM_DUMP_TIMING timing;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  MEM_SITE_SNAPSHOT sites;
  if (sites.is_refused()) return false;
  sites.sort_by_peak();
  MEM_STREAM_SINK sink(stream);
  mem_write_fileline(sink, sites, timing);
  return true;
}
