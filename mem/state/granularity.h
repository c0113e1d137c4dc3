// What is being tracked now. Relies on platform and mem/base, like everything in this folder.
#pragma once

#include <atomic>
#include <mutex>

#include "include/tuk_mem.h"
#include "mem/base/part.h"
#include "mem/base/signals_held.h"
#include "mem/base/spin_lock.h"

/// The current bit set. Changed under mem_granularity_lock; the hooks read it without.
extern std::atomic<std::uint32_t> mem_tracking_granularity;

/// Serialises changes of the granularity and the installation of hooks that goes with them.
using MEM_GRANULARITY_LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::GRANULARITY>;
extern MEM_GRANULARITY_LOCK mem_granularity_lock;

/// Holds mem_granularity_lock for a scope. No signal handler runs on the thread meanwhile: it might
/// want the lock too.
class MEM_GRANULARITY_CHANGE {
 public:
  MEM_GRANULARITY_CHANGE() : m_lock(mem_granularity_lock) {}

 private:
  MEM_SIGNALS_HELD m_signals;
  std::lock_guard<MEM_GRANULARITY_LOCK> m_lock;
};

/// The groups of bits that the accounting tests.
enum MEM_GRANULARITY_MASK : std::uint32_t {
  /// A stack is captured and its site found.
  MEM_MASK_FIND_SITE =
      MEM_TRACK_PER_LIBRARY | MEM_TRACK_PER_FILELINE | MEM_TRACK_LEAKS | MEM_TRACK_CALL_PATHS,
  /// The site's record is updated.
  MEM_MASK_CHARGE_SITE = MEM_TRACK_PER_FILELINE | MEM_TRACK_LEAKS | MEM_TRACK_CALL_PATHS,
  /// The block's thread is remembered with it.
  MEM_MASK_NOTE_THREAD = MEM_TRACK_PER_FILELINE | MEM_TRACK_CALL_PATHS,
  /// The block is remembered: at its site, or in its bins.
  MEM_MASK_REMEMBER = MEM_MASK_FIND_SITE | MEM_TRACK_PER_BIN_DETAILED,
  /// A sample records the timeline label.
  MEM_MASK_LABELS = MEM_TRACK_PER_BIN_DETAILED | MEM_TRACK_PER_LIBRARY,
  /// The global statistics are updated.
  MEM_MASK_STATISTICS = MEM_TRACK_PER_BIN | MEM_TRACK_LEAKS_FAST,
  /// The process total and the timeline index are maintained.
  MEM_MASK_TOTAL = MEM_TRACK_PER_BIN_DETAILED | MEM_TRACK_PER_LIBRARY | MEM_TRACK_PER_FILELINE |
                   MEM_TRACK_CALL_PATHS,
};

/// The reports that were asked for by name: what a report writer asks, since the granularity may
/// have been switched in between. Set by mem_get_tracking_granularity_from_env, cleared at
/// shutdown.
extern std::atomic<bool> mem_tracking_fileline_env_set;
extern std::atomic<bool> mem_tracking_library_env_set;
extern std::atomic<bool> mem_tracking_per_bin_detailed_env_set;
extern std::atomic<bool> mem_tracking_auxiliary_timeline_env_set;
extern std::atomic<bool> mem_tracking_call_paths_env_set;

/// The five.
inline constexpr std::atomic<bool>* mem_requested_reports[] = {
    &mem_tracking_fileline_env_set, &mem_tracking_library_env_set,
    &mem_tracking_per_bin_detailed_env_set, &mem_tracking_auxiliary_timeline_env_set,
    &mem_tracking_call_paths_env_set};

/// Clears all five.
void mem_forget_requested_reports();

/// What is tracked and what was asked for: nothing, in a forked child.
extern const MEM_PART mem_granularity_part;
