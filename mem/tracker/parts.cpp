#include "mem/tracker/parts.h"

#include <iterator>

#include "mem/base/reserve.h"
#include "mem/bins/bin_labels.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/output/report_directory.h"
#include "mem/paths/call_paths.h"
#include "mem/paths/path_stack.h"
#include "mem/records/block_bins.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/stack/site_walk.h"
#include "mem/stack/stack_filter.h"
#include "mem/stack/unwinder.h"
#include "mem/stack/user_filters.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/report_tag.h"
#include "mem/state/totals.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"
#include "mem/tracker/peaks.h"
#include "mem/tracker/snapshot_request.h"

namespace {

constexpr const MEM_PART* parts[] = {
    &mem_reserve_part,         &mem_granularity_part,        &mem_totals_part,
    &mem_peaks_part,           &mem_site_map_part,           &mem_call_paths_part,
    &mem_path_stacks_part,     &mem_live_blocks_part,        &mem_module_map_part,
    &mem_module_timeline_part, &mem_auxiliary_timeline_part, &mem_timeline_labels_part,
    &mem_block_bins_part,      &mem_bin_counters_part,       &mem_tag_counters_part,
    &mem_tag_snapshots_part,   &mem_bin_registries_part,     &mem_bin_labels_part,
    &mem_unwinder_part,        &mem_looked_through_part,     &mem_symbolizer_part,
    &mem_user_filters_part,    &mem_report_tag_part,         &mem_report_directory_part,
    &mem_cat_mouse_lock_part,  &mem_snapshots_part,
};

}  // namespace

void mem_create_parts(MEM_TRACKING_GRANULARITY granularity) {
  for (const MEM_PART* part : parts) part->create(granularity);
}

void mem_reset_parts() {
  for (const MEM_PART* part : parts) part->reset();
}

void mem_free_parts() {
  for (auto part = std::rbegin(parts); part != std::rend(parts); ++part) (*part)->free();
}

void mem_abandon_parts() {
  for (const MEM_PART* part : parts) part->abandon();
}

void mem_follow_parts(MEM_TRACKING_GRANULARITY granularity) {
  for (const MEM_PART* part : parts) part->follow(granularity);
}
