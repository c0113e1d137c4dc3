#include "mem/state/cat_mouse_lock.h"

#include "mem/state/hot_line.h"

constinit CAT_MOUSE_LOCK_A* mem_track_and_clear_exclusive_locker = nullptr;

void mem_create_cat_mouse_lock() {
  mem_track_and_clear_exclusive_locker = mem_hot_line.cat_mouse_lock.construct();
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
  mem_check(catsApproaching >= 0, "catsApproaching >= 0");
}
