// What is being tracked now. Relies on mem/base.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include <atomic>

#include "include/tuk_mem.h"

/// The current bit set. Changed under mem_granularity_lock; the hooks read it without.
extern std::atomic<std::uint32_t> mem_tracking_granularity;

/// Serialises changes of the granularity and the installation of hooks that goes with them.
extern tbb::spin_mutex& mem_granularity_lock;

/// The groups of bits that the accounting tests.
enum MEM_GRANULARITY_MASK : std::uint32_t {
  /// A stack is captured and its site found.
  MEM_MASK_FIND_SITE = MEM_TRACK_PER_LIBRARY | MEM_TRACK_PER_FILELINE | MEM_TRACK_LEAKS,
  /// The site's record is updated.
  MEM_MASK_CHARGE_SITE = MEM_TRACK_PER_FILELINE | MEM_TRACK_LEAKS,
  /// A sample records the timeline label.
  MEM_MASK_LABELS = MEM_TRACK_PER_BIN_DETAILED | MEM_TRACK_PER_LIBRARY,
  /// The global statistics are updated.
  MEM_MASK_STATISTICS = MEM_TRACK_PER_BIN | MEM_TRACK_LEAKS_FAST,
  /// The process total and the timeline index are maintained.
  MEM_MASK_TOTAL = MEM_TRACK_PER_BIN_DETAILED | MEM_TRACK_PER_LIBRARY | MEM_TRACK_PER_FILELINE,
};

/// The reports that were asked for by name: what a report writer asks, since the granularity may
/// have been switched in between. Set by mem_get_tracking_granularity_from_env, cleared at
/// shutdown.
extern bool mem_tracking_fileline_env_set;
extern bool mem_tracking_library_env_set;
extern bool mem_tracking_per_bin_detailed_env_set;
extern bool mem_tracking_auxiliary_timeline_env_set;

/// Clears all four.
void mem_forget_requested_reports();
