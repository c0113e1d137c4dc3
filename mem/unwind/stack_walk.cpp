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

}  // namespace

// The registers are variables of their own here, so that they stay in registers.
int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames) {
  auto [return_address, stack_pointer, frame_pointer] = frame;
  std::uintptr_t stack_end = mem_stack_end(stack_pointer);
  std::uintptr_t behind_call = return_address;
  for (int index = -skip; index < max_frames; ++index) {
    if (index >= 0) buffer[index] = reinterpret_cast<void const*>(return_address);
    if (index + 1 == max_frames) break;
    const RULE rule = mem_unwind_rules.at(behind_call);
    if (rule.kind() < RULE::OUTERMOST) [[likely]] {
      const std::uintptr_t cfa = cfa_of(rule, stack_pointer, frame_pointer);
      const std::uintptr_t offset = rule.frame_pointer_offset();
      if (frame_fits(cfa, offset, stack_pointer, stack_end)) [[likely]] {
        if (offset != 0) frame_pointer = mem_load_word(cfa - offset);
        return_address = behind_call = mem_load_word(cfa - 8);
        stack_pointer = cfa;
        continue;
      }
    }
    std::optional<MEM_WALK_POSITION> caller;
    if (rule.kind() != RULE::OUTERMOST)
      caller = caller_of({{return_address, stack_pointer, frame_pointer},
                          stack_end,
                          behind_call != return_address});
    if (!caller) return std::max(0, return_address == 0 ? index : index + 1);
    return_address = caller->frame.return_address;
    stack_pointer = caller->frame.stack_pointer;
    frame_pointer = caller->frame.frame_pointer;
    stack_end = caller->stack_end;
    behind_call = caller->address_behind_call();
  }
  return max_frames;
}

void mem_forget_unwind_rules(std::uintptr_t begin, std::uintptr_t end) {
  mem_unwind_rules.forget(begin, end);
}
