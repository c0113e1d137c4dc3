// The timeline of profile tags.
#include <mutex>
#include <ostream>

#include "include/tuk_mem.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/report/generic_timeline_dumper.h"
#include "mem/state/thread_flags.h"

bool mem_dump_tbb_profile_bin_tag_timeline_tracking(std::ostream& summary, std::ostream& detailed) {
  if (mem_pbin_tag_snapshots == nullptr) return true;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const std::lock_guard snapshots(mem_pbin_tag_snapshots->mutex());
  std::vector<MEM_TIMELINE_COLUMN> columns;
  std::uint32_t tag = 0;
  for (const auto& values : mem_pbin_tag_snapshots->series())
    columns.emplace_back(MEM_USER_MEMORY_TRACKER::profile_tag_id_to_string(tag++), values);
  generic_timeline_dumper(summary, detailed, mem_pbin_tag_snapshots->sample_count(),
                          std::move(columns), mem_pbin_tag_snapshots->first_label());
  return true;
}
