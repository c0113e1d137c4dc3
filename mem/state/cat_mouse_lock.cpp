#include "mem/state/cat_mouse_lock.h"

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
  mem_check(catsApproaching >= 0, "catsApproaching >= 0");
}
