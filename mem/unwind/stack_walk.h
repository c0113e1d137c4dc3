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

/// Forgets what was learnt of a module at [begin, end) that the loader has removed.
void mem_forget_unwind_rules(std::uintptr_t begin, std::uintptr_t end);
