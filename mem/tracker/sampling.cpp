#include "mem/tracker/sampling.h"

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/base/host_thread.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"
#include "mem/tracker/event_count.h"

namespace {

void capture_label() {
  const MEM_TRACKER_VISIT visit;
  if (visit && mem_timeline_labels != nullptr) mem_timeline_labels->capture();
}

// False when there is nothing to take samples of.
bool capture_series() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_tbb_tracking_ended) return false;
  mem_module_timeline->capture();
  mem_pbin_tag_snapshots->capture();
  mem_timeline_labels->capture();
  return true;
}

}  // namespace

[[gnu::cold]] void mem_capture_companions(std::uint32_t granularity) {
  const MEM_CANCELLATION_HELD not_cancelled;
  if ((granularity & MEM_MASK_LABELS) != 0) capture_label();
  if ((granularity & MEM_TRACK_AUXILIARY_TIMELINE) != 0) mem_auxiliary_timeline_file_t::capture();
}

void mem_user_snapshot_tracking_data() {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_CANCELLATION_HELD not_cancelled;
  if (!capture_series()) return;
  mem_auxiliary_timeline_file_t::capture();
  mem_count_event_unsampled();
}
