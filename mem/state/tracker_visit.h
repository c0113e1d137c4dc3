// How an exported function comes to the tracker's records.
#pragma once

#include <optional>

#include "mem/base/lifecycle.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"

/// Whether this thread is at work in the tracker's lock: a visit on it would be refused.
inline bool mem_visit_is_refused() {
  return mem_thread_place == MEM_THREAD_PLACE::MOUSE || mem_thread_place == MEM_THREAD_PLACE::CAT;
}

/// The cat is at rest, or at work, for a scope; then what it was before.
class MEM_CAT_IS {
 public:
  explicit MEM_CAT_IS(MEM_THREAD_PLACE place) : m_former(mem_thread_place) {
    mem_thread_place = place;
  }
  MEM_CAT_IS(const MEM_CAT_IS&) = delete;
  MEM_CAT_IS& operator=(const MEM_CAT_IS&) = delete;
  ~MEM_CAT_IS() { mem_thread_place = m_former; }

 private:
  MEM_THREAD_PLACE m_former;
};

/// Inside the tracker's lock for a scope, as a mouse or alone as the cat, with the thread marked as
/// inside the tracker. While it is admitted, the records are there, whole, or they are all gone:
/// whoever empties or frees them is a cat. Any thread, at any time:
/// - not admitted before initialisation, where mem_forked_inside is set, and on a thread that is at
///   work in the lock already, as in a signal handler that interrupted it there;
/// - on the thread that is the cat at rest, in the reports of the end, admitted without entering.
template <int KIND>
class MEM_VISIT_AS {
 public:
  MEM_VISIT_AS() {
    if (!mem_tbb_tracker_inited || mem_forked_inside) return;
    m_admitted = !mem_visit_is_refused();
    if (mem_thread_place == MEM_THREAD_PLACE::OUTSIDE)
      m_entered.emplace();
    else if (m_admitted)
      m_cat.emplace(MEM_THREAD_PLACE::CAT);
  }
  MEM_VISIT_AS(const MEM_VISIT_AS&) = delete;
  MEM_VISIT_AS& operator=(const MEM_VISIT_AS&) = delete;

  explicit operator bool() const { return m_admitted; }

 private:
  MEM_INSIDE_TRACKER m_inside;
  bool m_admitted = false;
  std::optional<MEM_INSIDE_AS<KIND>> m_entered;
  std::optional<MEM_CAT_IS> m_cat;
};

using MEM_TRACKER_VISIT = MEM_VISIT_AS<CAT_MOUSE_LOCK_A::MOUSE>;
using MEM_TRACKER_VISIT_ALONE = MEM_VISIT_AS<CAT_MOUSE_LOCK_A::CAT>;
