// Switching kinds of tracking on and off while the process runs.
#include <stdexcept>

#include "include/tuk_mem.h"
#include "mem/records/block_bins.h"
#include "mem/settings/call_path_settings.h"
#include "mem/state/granularity.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "mem/tracker/hooks.h"

namespace {

// Of a setting that is no number, the default holds: it was reported.
void read_settings_of(MEM_TRACKING_GRANULARITY bits) {
  if ((bits & MEM_TRACK_CALL_PATHS) == MEM_TRACK_NONE) return;
  try {
    mem_read_call_path_settings();
  } catch (const std::logic_error&) {
  }
}

// Whether anything is tracked now that was not at all before.
bool starts_tracking(MEM_TRACKING_GRANULARITY bits) {
  const MEM_GRANULARITY_CHANGE change;
  if (mem_tbb_tracking_ended) return false;
  if ((bits & MEM_TRACK_PER_BIN_DETAILED) != MEM_TRACK_NONE) mem_create_block_bins();
  const std::uint32_t old = mem_tracking_granularity.fetch_or(bits);
  if (old != MEM_TRACK_NONE || bits == MEM_TRACK_NONE) return false;
  mem_install_tracker_hooks();
  return true;
}

}  // namespace

void mem_enable_tracking(MEM_TRACKING_GRANULARITY bits) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  read_settings_of(bits);
  if (starts_tracking(bits)) mem_say_if_nothing_is_hooked();
}

void mem_disable_tracking(MEM_TRACKING_GRANULARITY bits) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_GRANULARITY_CHANGE change;
  if (mem_tbb_tracking_ended) return;
  mem_switch_tracking_off(bits);
}

void mem_set_tbb_track_alloc_dealloc(bool on) {
  if (on)
    mem_enable_tracking(MEM_TRACK_PER_BIN);
  else
    mem_disable_tracking(MEM_TRACK_PER_BIN);
}

MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT::MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT()
    : m_was_on(mem_get_tbb_track_alloc_dealloc()) {
  mem_set_tbb_track_alloc_dealloc(false);
}

MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT::
    ~MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT() {
  mem_set_tbb_track_alloc_dealloc(m_was_on);
}
