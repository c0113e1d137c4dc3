#include "mem/state/cat_mouse_lock.h"

#include <algorithm>

#include "mem/base/back_off.h"
#include "mem/base/lifecycle.h"
#include "mem/base/static_storage.h"

constinit CAT_MOUSE_LOCK_A* mem_track_and_clear_exclusive_locker = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<CAT_MOUSE_LOCK_A> storage;

void create(MEM_TRACKING_GRANULARITY) {
  mem_prepare_light_fences();
  mem_track_and_clear_exclusive_locker = storage.construct();
}

// A child that was made before the tracker was up has no lock to bring back.
void abandon() {
  mem_abandon_thread_lines();
  if (mem_track_and_clear_exclusive_locker != nullptr)
    mem_track_and_clear_exclusive_locker = storage.construct();
}

bool nobody_is_about() { return std::ranges::all_of(mem_used_thread_lines(), MEM_MOUSE::is_away); }

}  // namespace

constinit const MEM_PART mem_cat_mouse_lock_part(
    MEM_CREATE{create}, MEM_RESET{mem_nothing},
    MEM_FREE{mem_nothing},  // whoever comes later still asks whether tracking has ended
    MEM_ABANDON{abandon});

// A signal handler may fork at any step here and below. The child has a new lock, on which its only
// thread goes on with that step: it waits for nobody, and what it leaves is free.
void CAT_MOUSE_LOCK_A::enter_as_cat() {
  ++catsApproaching;
  ++m_cats_about;
  mem_heavy_fence();
  MEM_BACK_OFF back_off;
  for (bool entered = false; !entered;) {
    {
      const tbb::spin_mutex::scoped_lock one_at_a_time(m_cats_mutex);
      entered = mem_forked_inside || (cats == 0 && nobody_is_about());
      if (entered) cats = 1;
    }
    if (!entered) back_off.pause();
  }
  std::int32_t approaching = --catsApproaching;
  if (mem_forked_inside) catsApproaching = approaching = std::max(approaching, 0);
  mem_check(approaching >= 0, "catsApproaching >= 0");
}

// Where a cat was inside, no mouse is; one may stand at the door.
void CAT_MOUSE_LOCK_A::leave_as_cat() {
  if (--cats == 0) [[likely]]
    --m_cats_about;
  else
    refuse_leaving_cat();
  if (mem_forked_inside) cats = m_cats_about = 0;
}

// In a child whose thread was counted by the lock of its parent, leaving brings the count below
// zero, which is no error; so does a mouse's.
void CAT_MOUSE_LOCK_A::refuse_leaving_cat() {
  if (mem_forked_inside) return;
  mem_check(nobody_is_about(), "mice == 0");
  mem_check(cats == 0, "cats == 0");
}

void CAT_MOUSE_LOCK_A::refuse_leaving_mouse(std::int32_t mice) {
  mem_check(cats == 0, "cats == 0");
  if (mem_forked_inside)
    MEM_MOUSE(mem_thread_line()).was_not_there();
  else
    mem_check(mice >= 0, "mice >= 0");
}

[[gnu::cold, gnu::noinline]] void CAT_MOUSE_LOCK_A::wait_for_cats() const {
  MEM_BACK_OFF back_off;
  while (m_cats_about.load(std::memory_order_acquire) != 0) back_off.pause();
}
