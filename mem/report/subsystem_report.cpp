// The report per module.
#include <algorithm>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/records/counters.h"
#include "mem/records/module_map.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/columns.h"
#include "mem/report/dump_timing.h"
#include "mem/report/report_text.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/module_timeline.h"

namespace {

// By name; the texts are those of the snapshot.
using SUBSYSTEMS =
    std::map<std::string_view, MEMORY_TRACKER_BASE, std::less<>,
             MEM_BOOKKEEPING_ALLOCATOR<std::pair<const std::string_view, MEMORY_TRACKER_BASE>>>;
using SUBSYSTEM_ROW = std::pair<std::string_view, MEMORY_TRACKER_BASE>;
using SUBSYSTEM_ROWS = std::vector<SUBSYSTEM_ROW, MEM_BOOKKEEPING_ALLOCATOR<SUBSYSTEM_ROW>>;
using COLUMNS = std::vector<MEM_COUNTER_COLUMN, MEM_BOOKKEEPING_ALLOCATOR<MEM_COUNTER_COLUMN>>;

// Max bytes are not summed: the maxima of two sites need not fall on the same moment.
void add_site(MEMORY_TRACKER_BASE& sum, const MEMORY_TRACKER_BASE& site) {
  sum.current_blocks += site.current_blocks;
  sum.max_blocks += site.max_blocks;
  sum.peak_blocks += site.peak_blocks;
  sum.cumulative_blocks += site.cumulative_blocks;
  sum.current_bytes += site.current_bytes;
  sum.peak_bytes += site.peak_bytes;
  sum.cumulative_bytes += site.cumulative_bytes;
  sum.cumulative_requested_bytes += site.cumulative_requested_bytes;
  sum.cumulative_mismatched_bytes += site.cumulative_mismatched_bytes;
}

bool is_any(void const*, const MEM_ADDRESS_TRACKER&) { return true; }

// The catch-all site, and sites of no module, are summed under the empty name.
SUBSYSTEMS sum_sites(const MEM_SITE_SNAPSHOT& sites) {
  SUBSYSTEMS subsystems;
  for (const MEM_SITE_ROW& row : sites.rows())
    add_site(subsystems[row.info->module_name_buffer], row.counters);
  return subsystems;
}

// A module's bytes are known between peaks only where the timeline sampled them.
void take_max_bytes(SUBSYSTEMS& subsystems) {
  for (auto& [name, sum] : subsystems) sum.max_bytes = sum.peak_bytes;
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_module_timeline == nullptr) return;
  const std::lock_guard reading(mem_module_timeline_lock);
  for (auto& [name, sum] : subsystems)
    sum.max_bytes =
        std::max(sum.max_bytes, mem_module_timeline->largest_bytes(name).value_or(sum.max_bytes));
}

SUBSYSTEM_ROWS rows_by_peak(const SUBSYSTEMS& subsystems) {
  const auto key = [](const SUBSYSTEM_ROW& row) {
    return std::make_pair(mem_report_order(row.second), row.first);
  };
  SUBSYSTEM_ROWS rows(subsystems.begin(), subsystems.end());
  std::sort(rows.begin(), rows.end(),
            [&](const SUBSYSTEM_ROW& a, const SUBSYSTEM_ROW& b) { return key(a) < key(b); });
  return rows;
}

COLUMNS columns(bool with_max_bytes) {
  COLUMNS result = {MEM_COLUMN::current_bytes};
  if (with_max_bytes) result.push_back(MEM_COLUMN::max_bytes);
  result.insert(result.end(), {MEM_COLUMN::peak_bytes, MEM_COLUMN::cumulative_bytes,
                               MEM_COLUMN::cumulative_requested_bytes,
                               MEM_COLUMN::cumulative_mismatched_bytes, MEM_COLUMN::current_blocks,
                               MEM_COLUMN::peak_blocks, MEM_COLUMN::cumulative_blocks});
  return result;
}

bool is_listed(const SUBSYSTEM_ROW& row) {
  return row.second.cumulative_bytes != 0 || row.first == mem_other_module;
}

}  // namespace

bool mem_dump_tbb_subsystem_tracking(std::ostream& stream) {
  const MEM_DUMP_TIMING timing;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_SITE_SNAPSHOT sites(is_any);
  if (sites.is_refused()) return false;
  SUBSYSTEMS subsystems = sum_sites(sites);
  const bool with_max_bytes = mem_tracking_library_env_set;
  if (with_max_bytes) take_max_bytes(subsystems);
  const COLUMNS shown = columns(with_max_bytes);

  MEM_REPORT_TEXT out(stream);
  out << "MEM: TBB Subsystem Tracking Memory Snapshot.\n\nSubsystem";
  for (const MEM_COUNTER_COLUMN& column : shown) out << '\t' << column.title;
  out << '\n';
  for (const SUBSYSTEM_ROW& row : rows_by_peak(subsystems)) {
    if (!is_listed(row)) continue;
    out << (row.first.empty() ? std::string_view(mem_other_module) : row.first);
    for (const MEM_COUNTER_COLUMN& column : shown) {
      out << '\t';
      column.print(out, row.second);
    }
    out << '\n';
  }
  timing.write(out);
  out.flush();
  return true;
}
