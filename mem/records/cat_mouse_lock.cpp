#include "mem/records/cat_mouse_lock.h"

#include "mem/host/check.h"
#include "mem/host/static_storage.h"

constinit CAT_MOUSE_LOCK_A* mem_track_and_clear_exclusive_locker = nullptr;

namespace {
constinit MEM_STATIC_STORAGE<CAT_MOUSE_LOCK_A> storage;
}

void mem_create_cat_mouse_lock() { mem_track_and_clear_exclusive_locker = storage.construct(); }

void CAT_MOUSE_LOCK_A::V(int kind) {
  if (kind == CAT)
    enter_as_cat();
  else
    enter_as_mouse();
}

std::int32_t CAT_MOUSE_LOCK_A::cats_approaching() {
  const tbb::spin_mutex::scoped_lock approach(m_approach_mutex);
  return catsApproaching;
}

// A cat that announces itself between the two reads does not stop this mouse: it waits for it.
void CAT_MOUSE_LOCK_A::enter_as_mouse() {
  for (;;) {
    const std::int32_t approaching = cats_approaching();
    const tbb::spin_mutex::scoped_lock state(m_state_mutex);
    if (approaching != 0 || cats != 0) continue;
    ++mice;
    return;
  }
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

void CAT_MOUSE_LOCK_A::P(int kind) {
  const tbb::spin_mutex::scoped_lock state(m_state_mutex);
  if (kind == CAT) {
    --cats;
    mem_check(mice == 0, "mice == 0");
    mem_check(cats == 0, "cats == 0");
  } else {
    --mice;
    mem_check(cats == 0, "cats == 0");
    mem_check(mice >= 0, "mice >= 0");
  }
}
