// How an exported function comes to the tracker's records.
#pragma once

#include <optional>

#include "mem/state/cat_mouse_lock.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"

/// Whether this thread stands in the tracker's lock as a mouse: a visit on it would be refused.
inline bool mem_visit_is_refused() { return mem_thread_place == MEM_THREAD_PLACE::MOUSE; }

/// Inside the tracker's lock as a mouse for a scope, with the thread marked as inside the tracker.
/// While it is admitted, the records are there, whole, or they are all gone: whoever empties or
/// frees them is a cat. Any thread, at any time:
/// - not admitted before initialisation, and on a thread that already is a mouse, as in a signal
///   handler that interrupted it there;
/// - on the thread that is the cat, in the reports of the end, admitted without entering.
class MEM_TRACKER_VISIT {
 public:
  MEM_TRACKER_VISIT() {
    if (!mem_tbb_tracker_inited) return;
    m_admitted = !mem_visit_is_refused();
    if (mem_thread_place == MEM_THREAD_PLACE::OUTSIDE) m_mouse.emplace();
  }
  MEM_TRACKER_VISIT(const MEM_TRACKER_VISIT&) = delete;
  MEM_TRACKER_VISIT& operator=(const MEM_TRACKER_VISIT&) = delete;

  explicit operator bool() const { return m_admitted; }

 private:
  MEM_INSIDE_TRACKER m_inside;
  bool m_admitted = false;
  std::optional<MEM_INSIDE_AS_MOUSE> m_mouse;
};
