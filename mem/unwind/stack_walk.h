// Walking the stack by the call frame information of each function, remembered by return address.
#pragma once

#include <cstdint>

#include "mem/unwind/cfi_expression.h"

/// The caller of a function that has asked for its own frame by __builtin_frame_address(0), and has
/// a frame pointer therefore.
inline MEM_UNWIND_FRAME mem_caller_of(void const* own_frame) {
  auto const* const words = static_cast<std::uintptr_t const*>(own_frame);
  return {.return_address = words[1],
          .stack_pointer = reinterpret_cast<std::uintptr_t>(words + 2),
          .frame_pointer = words[0]};
}

/// Stores the return addresses of `frame` and its callers, but for the first `skip` of them, up to
/// `max_frames`; returns how many. The walk ends at the outermost frame, and at one that nothing is
/// known of. It reads nothing but the stack it stands on, whatever stack that is, and behind a
/// signal handler the one that was interrupted. Any thread, at any time; takes no lock that is held
/// for long, and allocates nothing.
int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames);

/// Such a walk, as far as somebody wants to see, and on from there. Frames that are noted as looked
/// through are passed over, at the price of a load.
class MEM_STACK_CURSOR {
 public:
  /// Begins at `frame`, but for the first `skip` of it and its callers.
  MEM_STACK_CURSOR(const MEM_UNWIND_FRAME& frame, int skip) : m_frame(frame), m_skip(skip) {}

  /// The return address of the next frame that is not noted, at most `frames_left` frames on; null
  /// when there is none. Takes off `frames_left` what it has come by.
  void const* next(int& frames_left);

  /// Notes that the frame at this return address, where a cursor has been, is always to be looked
  /// through; until mem_forget_looked_through. Where its rule is not remembered, neither is this.
  static void note_looked_through(void const* return_address);

 private:
  MEM_UNWIND_FRAME m_frame;
  int m_skip;                      // so many frames are left, then it looks at the next
  std::uintptr_t m_stack_end = 0;  // once it has looked
  std::uintptr_t m_behind_call = 0;
};

/// Forgets what was noted. Nobody notes anything meanwhile.
void mem_forget_looked_through();

/// The unwinder whose captures are walks of this file's, beginning with its own frame: there a
/// cursor may do instead. Null while there is none.
extern void const* mem_unwinder_of_walks;

/// Forgets what was learnt of a module at [begin, end) that the loader has removed.
void mem_forget_unwind_rules(std::uintptr_t begin, std::uintptr_t end);
