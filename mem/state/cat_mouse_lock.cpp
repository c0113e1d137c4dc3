#include "mem/state/cat_mouse_lock.h"

#include <algorithm>

#include "mem/base/lifecycle.h"
#include "mem/state/hot_line.h"

constinit CAT_MOUSE_LOCK_A* mem_track_and_clear_exclusive_locker = nullptr;

namespace {

void create() { mem_track_and_clear_exclusive_locker = mem_hot_line.cat_mouse_lock.construct(); }

// A child that was made before the tracker was up has no lock to bring back.
void abandon() {
  if (mem_track_and_clear_exclusive_locker != nullptr) create();
}

}  // namespace

constinit const MEM_PART mem_cat_mouse_lock_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { create(); }}, MEM_RESET{mem_nothing},
    MEM_FREE{mem_nothing},  // whoever comes later still asks whether tracking has ended
    MEM_ABANDON{abandon});

// In a child whose thread was counted by the lock of its parent, leaving brings the count below
// zero, which is no error.
void CAT_MOUSE_LOCK_A::refuse_leaving_cat() {
  if (mem_forked_inside) cats = 0;
  mem_check(mice == 0, "mice == 0");
  mem_check(cats == 0, "cats == 0");
}

void CAT_MOUSE_LOCK_A::refuse_leaving_mouse() {
  if (mem_forked_inside) mice = std::max(mice, 0);
  mem_check(cats == 0, "cats == 0");
  mem_check(mice >= 0, "mice >= 0");
}

void CAT_MOUSE_LOCK_A::enter_as_cat() {
  {
    const tbb::spin_mutex::scoped_lock approach(m_approach_mutex);
    ++catsApproaching;
  }
  for (bool entered = false; !entered;) {
    const tbb::spin_mutex::scoped_lock state(m_state_mutex);
    entered = mice == 0 && cats == 0;
    if (entered) cats = 1;
  }
  const tbb::spin_mutex::scoped_lock approach(m_approach_mutex);
  --catsApproaching;
  if (mem_forked_inside) catsApproaching = std::max(catsApproaching, 0);
  mem_check(catsApproaching >= 0, "catsApproaching >= 0");
}
