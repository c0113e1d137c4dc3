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
#include "mem/report/reports.h"
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

// The catch-all site, and sites of no module, are summed under the empty name.
SUBSYSTEMS sum_sites(const MEM_SITE_SNAPSHOT& sites) {
  SUBSYSTEMS subsystems;
  for (const MEM_SITE_ROW& row : sites.rows())
    add_site(subsystems[row.info().module_name_buffer], row.counters);
  return subsystems;
}

// A module's bytes are known between peaks only where the timeline sampled them.
void take_max_bytes(SUBSYSTEMS& subsystems, const MEM_MODULE_TIMELINE::SERIES_MAP& samples) {
  for (auto& [name, sum] : subsystems)
    sum.max_bytes = std::max(sum.peak_bytes,
                             MEM_MODULE_TIMELINE::largest(samples, name).value_or(sum.peak_bytes));
}

MEM_MODULE_TIMELINE::SERIES_MAP samples_so_far() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_module_timeline == nullptr) return {};
  const std::lock_guard reading(mem_module_timeline_lock);
  return mem_module_timeline->bytes();
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

void mem_write_subsystem(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                         const MEM_MODULE_TIMELINE::SERIES_MAP* samples,
                         const MEM_DUMP_TIMING& timing) {
  SUBSYSTEMS subsystems = sum_sites(sites);
  if (samples != nullptr) take_max_bytes(subsystems, *samples);
  const COLUMNS shown = columns(samples != nullptr);

  MEM_REPORT_TEXT out(sink);
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
}

bool mem_dump_tbb_subsystem_tracking(std::ostream& stream) {
  const MEM_DUMP_TIMING timing;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_SITE_SNAPSHOT sites;
  if (sites.is_refused()) return false;
  MEM_STREAM_SINK sink(stream);
  if (mem_tracking_library_env_set) {
    const auto samples = samples_so_far();
    mem_write_subsystem(sink, sites, &samples, timing);
  } else {
    mem_write_subsystem(sink, sites, nullptr, timing);
  }
  return true;
}
