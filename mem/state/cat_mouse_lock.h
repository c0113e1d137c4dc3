// The lock between ordinary accounting and those who must see all records at once.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include <atomic>
#include <cstdint>

#include "mem/base/check.h"
#include "mem/base/lock_order.h"
#include "mem/base/part.h"
#include "mem/state/mouse.h"
#include "mem/state/thread_flags.h"

/// Any number of mice (accounting, single-record queries) may be inside together; a cat (a peak
/// snapshot, a reset, the final reports) is alone inside. A cat that waits keeps new mice out, so
/// a steady stream of allocations cannot starve it. Nobody sleeps: waiting is spinning with
/// back-off. Not re-entrant: a mouse that tries to enter as a cat waits for itself forever.
class CAT_MOUSE_LOCK_A {
 public:
  static constexpr int MOUSE = 0;
  static constexpr int CAT = 1;

  /// Enters. The letters are those of a semaphore the other way round: hosts know them so.
  void V(int kind);
  /// Leaves, as the kind entered with. Leaving as what one is not is an internal error.
  void P(int kind);

 private:
  void enter_as_mouse();
  void leave_as_mouse();
  void enter_as_cat();
  void leave_as_cat();
  void wait_for_cats() const;
  void refuse_leaving_cat();
  void refuse_leaving_mouse(std::int32_t mice);

  std::atomic<std::int32_t> cats = 0;
  std::atomic<std::int32_t> catsApproaching = 0;
  std::atomic<std::int32_t> m_cats_about = 0;  // approaching or inside: what mice look at
  tbb::spin_mutex m_cats_mutex;                // one cat enters at a time
};

// Mice pass here at every event: inline.
inline void CAT_MOUSE_LOCK_A::V(int kind) {
  if (kind == CAT)
    enter_as_cat();
  else
    enter_as_mouse();
}

inline void CAT_MOUSE_LOCK_A::P(int kind) {
  if (kind == CAT)
    leave_as_cat();
  else
    leave_as_mouse();
}

// A cat that announces itself once this mouse is at the door waits until it has left.
inline void CAT_MOUSE_LOCK_A::enter_as_mouse() {
  MEM_MOUSE mouse(mem_thread_line());
  for (mouse.come(); m_cats_about.load() != 0; mouse.come()) [[unlikely]] {
      mouse.leave();
      wait_for_cats();
    }
}

inline void CAT_MOUSE_LOCK_A::leave_as_mouse() {
  const bool cat_is_inside = cats.load(std::memory_order_relaxed) != 0;
  const std::int32_t mice = MEM_MOUSE(mem_thread_line()).leave();
  if (cat_is_inside || mice < 0) [[unlikely]]
    refuse_leaving_mouse(mice);
}

/// The tracker's one lock, null before initialisation. The object itself lives to the end of the
/// process: a thread that was in a hook when tracking ended still enters and leaves it. Every other
/// lock of the tracker's records is taken inside it.
extern CAT_MOUSE_LOCK_A* mem_track_and_clear_exclusive_locker;

/// Its life: created with nobody inside, never freed, and in a forked child nobody is inside again.
extern const MEM_PART mem_cat_mouse_lock_part;

/// Inside the tracker's lock for a scope. Only where this thread is outside.
template <int KIND>
class MEM_INSIDE_AS {
 public:
  MEM_INSIDE_AS() {
    mem_thread_place =
        KIND == CAT_MOUSE_LOCK_A::CAT ? MEM_THREAD_PLACE::CAT : MEM_THREAD_PLACE::MOUSE;
    mem_note_lock_taken(MEM_LOCK_ORDER::TRACKER);
    mem_track_and_clear_exclusive_locker->V(KIND);
  }
  MEM_INSIDE_AS(const MEM_INSIDE_AS&) = delete;
  MEM_INSIDE_AS& operator=(const MEM_INSIDE_AS&) = delete;
  ~MEM_INSIDE_AS() {
    mem_track_and_clear_exclusive_locker->P(KIND);
    mem_note_lock_released(MEM_LOCK_ORDER::TRACKER);
    mem_thread_place = MEM_THREAD_PLACE::OUTSIDE;
  }
};

using MEM_INSIDE_AS_MOUSE = MEM_INSIDE_AS<CAT_MOUSE_LOCK_A::MOUSE>;
using MEM_INSIDE_AS_CAT = MEM_INSIDE_AS<CAT_MOUSE_LOCK_A::CAT>;

/// A mouse steps out for a scope, so that nothing slow or blocking keeps a cat waiting. Once back,
/// look at mem_tbb_tracking_ended before touching a record.
class MEM_MOUSE_STEPPED_OUT {
 public:
  MEM_MOUSE_STEPPED_OUT() {
    mem_track_and_clear_exclusive_locker->P(CAT_MOUSE_LOCK_A::MOUSE);
    mem_note_lock_released(MEM_LOCK_ORDER::TRACKER);
    mem_thread_place = MEM_THREAD_PLACE::OUTSIDE;
  }
  MEM_MOUSE_STEPPED_OUT(const MEM_MOUSE_STEPPED_OUT&) = delete;
  MEM_MOUSE_STEPPED_OUT& operator=(const MEM_MOUSE_STEPPED_OUT&) = delete;
  ~MEM_MOUSE_STEPPED_OUT() {
    mem_thread_place = MEM_THREAD_PLACE::MOUSE;
    mem_note_lock_taken(MEM_LOCK_ORDER::TRACKER);
    mem_track_and_clear_exclusive_locker->V(CAT_MOUSE_LOCK_A::MOUSE);
  }
};
