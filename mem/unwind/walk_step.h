// One step of a walk, from a frame to its caller's.
#pragma once

#include <cstdint>

#include "mem/unwind/careful_step.h"
#include "mem/unwind/checked_load.h"
#include "mem/unwind/rule_table.h"
#include "mem/unwind/stack_bounds.h"

/// How a frame was left.
enum class MEM_LEFT : unsigned char {
  PLAINLY,    ///< by its rule: the caller depends on nothing but the frame and two words of stack
  CAREFULLY,  ///< by all that its call frame information says
  NOT,        ///< it has no caller
};

/// A frame that a walk stands at. Passed and returned by value, so that it stays in registers.
struct MEM_WALK {
  std::uintptr_t return_address;
  std::uintptr_t stack_pointer;
  std::uintptr_t frame_pointer;
  std::uintptr_t stack_end;
  std::uintptr_t behind_call;  ///< the return address, as if there had been a call

  static MEM_WALK from(const MEM_WALK_POSITION& position) {
    const MEM_UNWIND_FRAME& frame = position.frame;
    return {frame.return_address, frame.stack_pointer, frame.frame_pointer, position.stack_end,
            position.address_behind_call()};
  }
  static MEM_WALK from(const MEM_UNWIND_FRAME& frame) {
    return from({frame, mem_stack_end(frame.stack_pointer), false});
  }

  MEM_UNWIND_FRAME frame() const { return {return_address, stack_pointer, frame_pointer}; }
  bool is_interrupted() const { return behind_call != return_address; }
  MEM_UNWIND_RULE rule() const { return mem_unwind_rules.at(behind_call); }

  [[gnu::always_inline]] MEM_LEFT leave(MEM_UNWIND_RULE rule) {
    if (rule.kind() < MEM_UNWIND_RULE::OUTERMOST) [[likely]] {
      const std::uintptr_t cfa = cfa_by(rule);
      const std::uintptr_t offset = rule.frame_pointer_offset();
      if (has_room(cfa, offset)) [[likely]] {
        if (offset != 0) frame_pointer = mem_load_word(cfa - offset);
        return_address = behind_call = mem_load_word(cfa - 8);
        stack_pointer = cfa;
        return MEM_LEFT::PLAINLY;
      }
    }
    MEM_WALK caller{};
    if (rule.kind() == MEM_UNWIND_RULE::OUTERMOST || !leave_carefully(*this, caller))
      return MEM_LEFT::NOT;
    *this = caller;
    return MEM_LEFT::CAREFULLY;
  }

 private:
  std::uintptr_t cfa_by(MEM_UNWIND_RULE rule) const {
    return (rule.kind() == MEM_UNWIND_RULE::FROM_FRAME_POINTER ? frame_pointer : stack_pointer) +
           rule.cfa_offset();
  }

  // Whether the frame lies in what is known of the stack, with all that is read of it.
  bool has_room(std::uintptr_t cfa, std::uintptr_t frame_pointer_offset) const {
    return cfa <= stack_end && cfa >= stack_pointer + 8 &&
           cfa - stack_pointer >= frame_pointer_offset;
  }

  static bool leave_carefully(MEM_WALK walk, MEM_WALK& caller);
};
