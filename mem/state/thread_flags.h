// What a thread is doing in the tracker: the two flags by which its allocations stay out of the
// accounting, and where it stands with the tracker's lock.
#pragma once

#include "include/tuk_mem.h"

/// Set while this thread is inside the tracker's accounting: what the tracker itself allocates is
/// not tracked. The initial-exec model keeps the first access on a thread from allocating.
[[gnu::tls_model(
    "initial-exec")]] extern constinit thread_local bool mem_tbb_tracker_thread_local_block_recurse;

/// Set while this thread has excluded its own work.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local bool mem_block_me_bool;

/// As what this thread is inside the cat-and-mouse lock, or about to enter or leave it. Whoever is
/// called on this thread then, a signal handler or a host's error reporter, must not wait for the
/// tracker: it would wait for itself.
enum class MEM_THREAD_PLACE : unsigned char {
  OUTSIDE,
  MOUSE,
  CAT,
  CAT_AT_REST,  ///< the cat, between two looks of the end's reports at the records: it holds no
                ///< other lock, and no record is half changed
};
[[gnu::tls_model("initial-exec")]] extern constinit thread_local MEM_THREAD_PLACE mem_thread_place;

/// The block that this thread allocated last, of those that have a call path; null when it has been
/// released since.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local void const* mem_last_block;

inline bool mem_thread_is_untracked() {
  return mem_tbb_tracker_thread_local_block_recurse || mem_block_me_bool;
}

/// This thread is inside the tracker, for a scope; the former state comes back. Nests.
class MEM_INSIDE_TRACKER {
 public:
  // Not by std::exchange: for gcc's sanitizer a reference to the variable is null.
  MEM_INSIDE_TRACKER() : m_was_inside(mem_tbb_tracker_thread_local_block_recurse) {
    mem_tbb_tracker_thread_local_block_recurse = true;
  }
  MEM_INSIDE_TRACKER(const MEM_INSIDE_TRACKER&) = delete;
  MEM_INSIDE_TRACKER& operator=(const MEM_INSIDE_TRACKER&) = delete;
  ~MEM_INSIDE_TRACKER() { mem_tbb_tracker_thread_local_block_recurse = m_was_inside; }

 private:
  bool m_was_inside;
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
