#include "mem/stack/site_walk.h"

#include <mutex>

#include "mem/records/site_map.h"
#include "mem/stack/stack_filter.h"

namespace {

// A frame that is unknown for now has no record, and is judged again.
void note_looked_through(const MEM_FRAMES& frames) {
  for (int frame = 0; frame < frames.count; ++frame)
    if (mem_find_site(frames.addresses[frame]) != nullptr)
      MEM_STACK_CURSOR::note_looked_through(frames.addresses[frame]);
}

[[gnu::noinline]] MEM_ADDRESS_TRACKER* look_up(const MEM_FRAMES& frames) {
  std::unique_lock trace(mem_trace_lock);
  MEM_ADDRESS_TRACKER* const site =
      mem_filter_stack_trace(frames.addresses, frames.count, trace, frames.walk);
  if (site == nullptr || !mem_is_catch_all(*site)) return site;
  note_looked_through(frames);
  return frames.are_last ? site : nullptr;
}

}  // namespace

int MEM_SITE_WALK::look_ahead(std::span<void const*> frames) const {
  MEM_STACK_CURSOR cursor = m_cursor;
  int frames_left = m_frames_left;
  int count = 0;
  while (count < static_cast<int>(frames.size()) &&
         (frames[count] = cursor.next(frames_left)) != nullptr)
    ++count;
  return count;
}

MEM_ADDRESS_TRACKER* mem_site_of(const MEM_FRAMES& frames) {
  if (frames.count == 0) return &mem_catch_all_site();
  MEM_ADDRESS_TRACKER* const recent = mem_recent_site(frames.addresses[0]);
  if (recent != nullptr && !recent->filtered) [[likely]]
    return recent;
  return look_up(frames);
}

constinit const MEM_PART mem_looked_through_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_forget_looked_through(); }},
    MEM_RESET{mem_forget_looked_through}, MEM_FREE{mem_nothing},
    MEM_ABANDON{mem_nothing});  // the child tracks nothing, or creates it anew
