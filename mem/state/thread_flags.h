// The two flags by which a thread's allocations stay out of the accounting.
#pragma once

#include "include/tuk_mem.h"

/// Set while this thread is inside the tracker's accounting: what the tracker itself allocates is
/// not tracked. The initial-exec model keeps the first access on a thread from allocating.
[[gnu::tls_model(
    "initial-exec")]] extern constinit thread_local bool mem_tbb_tracker_thread_local_block_recurse;

/// Set while this thread has excluded its own work.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local bool mem_block_me_bool;

/// Set while this thread, inside the tracker, has stepped out of the cat-and-mouse lock.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local bool mem_has_stepped_out;

/// Whether this thread may hold the tracker's locks: one that ends the process now, as a host's
/// error reporter may, must not wait for itself.
inline bool mem_thread_holds_tracker() {
  return mem_tbb_tracker_thread_local_block_recurse && !mem_has_stepped_out;
}

inline bool mem_thread_is_untracked() {
  return mem_tbb_tracker_thread_local_block_recurse || mem_block_me_bool;
}

/// This thread is inside the tracker, for a scope. Only where it was not before.
class MEM_INSIDE_TRACKER {
 public:
  MEM_INSIDE_TRACKER() { mem_tbb_tracker_thread_local_block_recurse = true; }
  MEM_INSIDE_TRACKER(const MEM_INSIDE_TRACKER&) = delete;
  MEM_INSIDE_TRACKER& operator=(const MEM_INSIDE_TRACKER&) = delete;
  ~MEM_INSIDE_TRACKER() { mem_tbb_tracker_thread_local_block_recurse = false; }
};

/// This thread's tracking is blocked, for a scope; the former state comes back. Nests.
class MEM_THREAD_TRACKING_BLOCKED {
 public:
  MEM_THREAD_TRACKING_BLOCKED() : m_was_blocked(mem_block_thread_tracking()) {}
  MEM_THREAD_TRACKING_BLOCKED(const MEM_THREAD_TRACKING_BLOCKED&) = delete;
  MEM_THREAD_TRACKING_BLOCKED& operator=(const MEM_THREAD_TRACKING_BLOCKED&) = delete;
  ~MEM_THREAD_TRACKING_BLOCKED() {
    if (!m_was_blocked) mem_unblock_thread_tracking();
  }

 private:
  bool m_was_blocked;
};
