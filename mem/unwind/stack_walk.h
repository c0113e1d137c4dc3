// Walking the stack by the call frame information of each function, remembered by return address.
#pragma once

#include <cstdint>

/// A frame's registers, as they were when it made its call.
struct MEM_UNWIND_FRAME {
  std::uintptr_t return_address;  ///< of the call: where the frame goes on
  std::uintptr_t stack_pointer;
  std::uintptr_t frame_pointer;
};

/// Stores the return addresses of `frame` and its callers, but for the first `skip` of them, up to
/// `max_frames`; returns how many. -1 when a frame on the way can't be left by the rules that are
/// remembered here: then somebody else has to walk. Any thread, at any time; takes no lock.
///
/// Rules are remembered for life. After a module was unloaded and another loaded in its place, a
/// return address that both have is left by the rule of the first.
int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames);
