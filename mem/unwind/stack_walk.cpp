#include "mem/unwind/stack_walk.h"

#include <algorithm>
#include <optional>

#include "mem/unwind/walk_step.h"

namespace {

[[gnu::cold, gnu::noinline]] std::optional<MEM_WALK_POSITION> caller_of(
    MEM_WALK_POSITION position) {
  if (!mem_step_carefully(position)) return std::nullopt;
  return position;
}

}  // namespace

[[gnu::cold, gnu::noinline]] bool MEM_WALK::leave_carefully(MEM_WALK walk, MEM_WALK& caller) {
  const std::optional<MEM_WALK_POSITION> found =
      caller_of({walk.frame(), walk.stack_end, walk.is_interrupted()});
  if (found) caller = MEM_WALK::from(*found);
  return found.has_value();
}

int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames) {
  MEM_WALK walk = MEM_WALK::from(frame);
  for (int index = -skip; index < max_frames; ++index) {
    if (index >= 0) buffer[index] = reinterpret_cast<void const*>(walk.return_address);
    if (index + 1 == max_frames) break;
    if (walk.leave(walk.rule()) == MEM_LEFT::NOT)
      return std::max(0, walk.return_address == 0 ? index : index + 1);
  }
  return max_frames;
}

// At the end nothing is left to look at, now and later.
void const* MEM_STACK_CURSOR::next(int& frames_left) {
  MEM_WALK walk = m_stack_end == 0 ? MEM_WALK::from(m_frame)
                                   : MEM_WALK{m_frame.return_address, m_frame.stack_pointer,
                                              m_frame.frame_pointer, m_stack_end, m_behind_call};
  int skip = m_skip;
  for (int left = frames_left; left > 0 || skip > 0;) {
    const MEM_UNWIND_RULE rule = walk.rule();
    if (skip > 0) {
      --skip;
    } else {
      if (walk.return_address == 0) break;
      --left;
      if (!rule.is_looked_through() || walk.is_interrupted()) {
        m_frame = walk.frame();
        m_stack_end = walk.stack_end;
        m_behind_call = walk.behind_call;
        m_skip = 1;
        frames_left = left;
        return reinterpret_cast<void const*>(walk.return_address);
      }
    }
    if (walk.leave(rule) == MEM_LEFT::NOT) break;
  }
  m_skip = frames_left = 0;
  return nullptr;
}

void MEM_STACK_CURSOR::note_looked_through(void const* return_address) {
  mem_unwind_rules.note_looked_through(reinterpret_cast<std::uintptr_t>(return_address));
}

void mem_forget_looked_through() { mem_unwind_rules.forget_looked_through(); }

constinit void const* mem_unwinder_of_walks = nullptr;

void mem_forget_unwind_rules(std::uintptr_t begin, std::uintptr_t end) {
  mem_unwind_rules.forget(begin, end);
}
