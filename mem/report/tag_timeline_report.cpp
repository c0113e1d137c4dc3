// The timeline of profile tags.
#include <optional>
#include <ostream>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/report/generic_timeline_dumper.h"
#include "mem/report/reports.h"
#include "mem/state/tracker_visit.h"

namespace {

using TABLE = MEM_PB_TAG_SNAPSHOT::TABLE;

std::optional<TABLE> table_so_far() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_pbin_tag_snapshots == nullptr) return std::nullopt;
  return mem_pbin_tag_snapshots->table();
}

}  // namespace

void mem_write_tag_timeline(MEM_TEXT_SINK& summary, MEM_TEXT_SINK& detailed, const TABLE& table) {
  const MEM_USER_MEMORY_TRACKER::IN_USE names;
  MEM_TIMELINE_COLUMNS columns;
  std::uint32_t tag = 0;
  for (const auto& values : table.series)
    columns.emplace_back(MEM_USER_MEMORY_TRACKER::profile_tag_id_to_string(tag++), values);
  generic_timeline_dumper(summary, detailed, table.sample_count, std::move(columns),
                          MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER(table.labels));
}

bool mem_dump_tbb_profile_bin_tag_timeline_tracking(std::ostream& summary, std::ostream& detailed) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_USER_MEMORY_TRACKER::IN_USE names;
  const std::optional<TABLE> table = table_so_far();
  if (!table) return !mem_visit_is_refused();
  if (!summary || !detailed) return true;
  MEM_STREAM_SINK summary_sink(summary);
  MEM_STREAM_SINK detailed_sink(detailed);
  mem_write_tag_timeline(summary_sink, detailed_sink, *table);
  return true;
}
