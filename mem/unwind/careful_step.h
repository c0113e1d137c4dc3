// Leaving a frame by all that its call frame information says.
#pragma once

#include "mem/unwind/cfi_expression.h"
#include "mem/unwind/frame_layout.h"

/// Where a walk is: in a frame, on a stack.
struct MEM_WALK_POSITION {
  MEM_UNWIND_FRAME frame;
  std::uintptr_t stack_end;  ///< [stack pointer, stack_end) may be read
  /// The frame was interrupted by a signal: it goes on with the instruction at its address itself,
  /// not behind a call.
  bool is_interrupted = false;

  /// The return address, as if there had been a call.
  std::uintptr_t address_behind_call() const {
    return frame.return_address + (is_interrupted ? 1 : 0);
  }
};

/// To the caller's frame, also out of a signal handler and from one stack to another. False when
/// there is no caller, or nothing is known of it: nothing but readable memory is read. A
/// microsecond or two.
bool mem_step_carefully(MEM_WALK_POSITION& position);

/// The same by this layout of the frame.
bool mem_leave_frame(const MEM_FRAME_LAYOUT& layout, MEM_WALK_POSITION& position);
