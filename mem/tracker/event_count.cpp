#include "mem/tracker/event_count.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <optional>

#include "mem/settings/tuning.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/totals.h"

namespace {

// Fewer than so many events in room are not worth the claim.
constexpr std::int64_t least_room = 32;

// A longer period never ends.
constexpr std::uint64_t endless = 1ULL << 60;

std::int64_t sample_behind(std::int64_t events) {
  const auto period =
      static_cast<std::int64_t>(std::min(mem_module_snapshot_delay.events(), endless));
  return events - events % period + period;
}

enum class COUNTED { AS_OTHERS, AS_SAMPLE, NOT_YET };

// Before the tracker is up there is no lock to be in, and no room. At the number of a sample it has
// to be known whether others have counted as far as they could.
COUNTED count_with_others() {
  std::optional<MEM_INSIDE_AS_MOUSE> mouse;
  if (mem_track_and_clear_exclusive_locker != nullptr) mouse.emplace();
  MEM_SHARED_TOTAL& count = mem_snapshot_count;
  const std::lock_guard claiming(count.lock());
  const std::int64_t number = count.claimed();
  const bool is_sample = mem_module_snapshot_delay.divides(static_cast<std::uint64_t>(number));
  if (is_sample && count.rooms_are_out()) return COUNTED::NOT_YET;
  count.claim(mem_thread_line(), 1, mouse ? sample_behind(number) : 0, least_room);
  return is_sample ? COUNTED::AS_SAMPLE : COUNTED::AS_OTHERS;
}

[[gnu::noinline]] bool count_out_of_room() {
  COUNTED counted = count_with_others();
  for (; counted == COUNTED::NOT_YET; counted = count_with_others()) {
    const MEM_INSIDE_AS_CAT cat;
    mem_snapshot_count.settle();
  }
  return counted == COUNTED::AS_SAMPLE;
}

bool has_room(const MEM_THREAD_LINE& line) {
  return line.event_room.load(std::memory_order_relaxed) > 0;
}

}  // namespace

bool mem_count_event() {
  MEM_THREAD_LINE& line = mem_thread_line();
  if (has_room(line)) [[likely]] {
    const MEM_INSIDE_AS_MOUSE mouse;
    if (mem_snapshot_count.add_in_room(line, 1)) [[likely]]
      return false;
  }
  return count_out_of_room();
}

void mem_count_event_unsampled() {
  const MEM_INSIDE_AS_CAT cat;
  mem_snapshot_count.settle();
  mem_snapshot_count.set(mem_snapshot_count + 1);
}
