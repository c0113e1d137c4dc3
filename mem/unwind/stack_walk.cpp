#include "mem/unwind/stack_walk.h"

#include <algorithm>
#include <optional>

#include "mem/unwind/careful_step.h"
#include "mem/unwind/checked_load.h"
#include "mem/unwind/rule_table.h"
#include "mem/unwind/stack_bounds.h"

namespace {

using RULE = MEM_UNWIND_RULE;

std::uintptr_t cfa_of(RULE rule, std::uintptr_t stack_pointer, std::uintptr_t frame_pointer) {
  return (rule.kind() == RULE::FROM_FRAME_POINTER ? frame_pointer : stack_pointer) +
         rule.cfa_offset();
}

// Whether the frame lies in what is known of the stack, with all that is read of it.
bool frame_fits(std::uintptr_t cfa, std::uintptr_t frame_pointer_offset,
                std::uintptr_t stack_pointer, std::uintptr_t stack_end) {
  return cfa <= stack_end && cfa >= stack_pointer + 8 &&
         cfa - stack_pointer >= frame_pointer_offset;
}

[[gnu::cold, gnu::noinline]] std::optional<MEM_WALK_POSITION> caller_of(
    MEM_WALK_POSITION position) {
  if (!mem_step_carefully(position)) return std::nullopt;
  return position;
}

// Passed and returned by value, so that it stays in registers.
struct WALK {
  std::uintptr_t return_address;
  std::uintptr_t stack_pointer;
  std::uintptr_t frame_pointer;
  std::uintptr_t stack_end;
  std::uintptr_t behind_call;  // the return address, as if there had been a call

  MEM_UNWIND_FRAME frame() const { return {return_address, stack_pointer, frame_pointer}; }
  RULE rule() const { return mem_unwind_rules.at(behind_call); }

  static WALK from(const MEM_WALK_POSITION& position) {
    const MEM_UNWIND_FRAME& frame = position.frame;
    return {frame.return_address, frame.stack_pointer, frame.frame_pointer, position.stack_end,
            position.address_behind_call()};
  }
  static WALK from(const MEM_UNWIND_FRAME& frame) {
    return from({frame, mem_stack_end(frame.stack_pointer), false});
  }
};

[[gnu::cold, gnu::noinline]] bool leave_carefully(WALK walk, WALK& caller) {
  const std::optional<MEM_WALK_POSITION> found =
      caller_of({walk.frame(), walk.stack_end, walk.behind_call != walk.return_address});
  if (found) caller = WALK::from(*found);
  return found.has_value();
}

// To the caller; false when there is none.
[[gnu::always_inline]] inline bool leave(WALK& walk, RULE rule) {
  if (rule.kind() < RULE::OUTERMOST) [[likely]] {
    const std::uintptr_t cfa = cfa_of(rule, walk.stack_pointer, walk.frame_pointer);
    const std::uintptr_t offset = rule.frame_pointer_offset();
    if (frame_fits(cfa, offset, walk.stack_pointer, walk.stack_end)) [[likely]] {
      if (offset != 0) walk.frame_pointer = mem_load_word(cfa - offset);
      walk.return_address = walk.behind_call = mem_load_word(cfa - 8);
      walk.stack_pointer = cfa;
      return true;
    }
  }
  WALK caller{};
  if (rule.kind() == RULE::OUTERMOST || !leave_carefully(walk, caller)) return false;
  walk = caller;
  return true;
}

}  // namespace

int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames) {
  WALK walk = WALK::from(frame);
  for (int index = -skip; index < max_frames; ++index) {
    if (index >= 0) buffer[index] = reinterpret_cast<void const*>(walk.return_address);
    if (index + 1 == max_frames) break;
    if (!leave(walk, walk.rule())) return std::max(0, walk.return_address == 0 ? index : index + 1);
  }
  return max_frames;
}

// At the end nothing is left to look at, now and later.
void const* MEM_STACK_CURSOR::next(int& frames_left) {
  WALK walk = m_stack_end == 0 ? WALK::from(m_frame)
                               : WALK{m_frame.return_address, m_frame.stack_pointer,
                                      m_frame.frame_pointer, m_stack_end, m_behind_call};
  int skip = m_skip;
  for (int left = frames_left; left > 0 || skip > 0;) {
    const RULE rule = walk.rule();
    if (skip > 0) {
      --skip;
    } else {
      if (walk.return_address == 0) break;
      --left;
      if (!rule.is_looked_through() || walk.behind_call != walk.return_address) {
        m_frame = walk.frame();
        m_stack_end = walk.stack_end;
        m_behind_call = walk.behind_call;
        m_skip = 1;
        frames_left = left;
        return reinterpret_cast<void const*>(walk.return_address);
      }
    }
    if (!leave(walk, rule)) break;
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
