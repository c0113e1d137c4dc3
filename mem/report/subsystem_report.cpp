// The report per module.
#include <algorithm>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/report/columns.h"
#include "mem/report/dump_timing.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/timeline/module_timeline.h"

namespace {

using SUBSYSTEMS = std::map<std::string, MEMORY_TRACKER_BASE>;
using SUBSYSTEM_ROW = std::pair<std::string, MEMORY_TRACKER_BASE>;

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

// The catch-all site, and sites of no module, are summed under the empty name.
SUBSYSTEMS sum_sites() {
  SUBSYSTEMS subsystems;
  const std::lock_guard trace(mem_trace_lock);
  if (mem_address_tracker_map == nullptr) return subsystems;
  for (const auto& [address, site] : *mem_address_tracker_map)
    add_site(subsystems[site.address_info.module_name_buffer], site);
  return subsystems;
}

// A module's bytes are known between peaks only where the timeline sampled them. Its own mutex
// keeps captures out meanwhile.
void take_max_bytes(SUBSYSTEMS& subsystems) {
  const std::lock_guard reading(mem_module_timeline_lock);
  const std::lock_guard timeline(mem_module_timeline->mutex());
  for (auto& [name, sum] : subsystems) {
    sum.max_bytes = sum.peak_bytes;
    const auto series = mem_module_timeline->bytes().find(std::string_view(name));
    if (series != mem_module_timeline->bytes().end())
      sum.max_bytes = std::max(sum.max_bytes, series->second.values.largest());
  }
}

std::vector<SUBSYSTEM_ROW> rows_by_peak(const SUBSYSTEMS& subsystems) {
  std::vector<SUBSYSTEM_ROW> rows(subsystems.begin(), subsystems.end());
  std::sort(rows.begin(), rows.end(), [](const SUBSYSTEM_ROW& a, const SUBSYSTEM_ROW& b) {
    return a.second.peak_bytes > b.second.peak_bytes;
  });
  return rows;
}

std::vector<MEM_COUNTER_COLUMN> columns(bool with_max_bytes) {
  std::vector<MEM_COUNTER_COLUMN> result = {MEM_COLUMN::current_bytes};
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

bool mem_dump_tbb_subsystem_tracking(std::ostream& out) {
  const MEM_DUMP_TIMING timing;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  SUBSYSTEMS subsystems = sum_sites();
  const bool with_max_bytes = mem_tracking_library_env_set;
  if (with_max_bytes) take_max_bytes(subsystems);
  const std::vector<MEM_COUNTER_COLUMN> shown = columns(with_max_bytes);

  out << "MEM: TBB Subsystem Tracking Memory Snapshot." << std::endl << std::endl << "Subsystem";
  for (const MEM_COUNTER_COLUMN& column : shown) out << '\t' << column.title;
  out << std::endl;
  for (const SUBSYSTEM_ROW& row : rows_by_peak(subsystems)) {
    if (!is_listed(row)) continue;
    out << (row.first.empty() ? mem_other_module : row.first.c_str());
    for (const MEM_COUNTER_COLUMN& column : shown) {
      out << '\t';
      column.print(out, row.second);
    }
    out << '\n';
  }
  timing.write(out);
  return true;
}
