// The out-of-memory handlers: the host's, and the library's own in front of it. This folder relies
// on mem/base, mem/state and mem/allocator.
#pragma once

#include <atomic>

/// Called instead of the library's own report; null at load. Set by mem_set_out_of_memory_handler,
/// from any thread.
extern std::atomic<void (*)()> mem_out_of_memory_func_ptr;

/// Makes a failing allocation of this thread, by whichever function, end in mem_out_of_memory. The
/// host's handler stays as it is.
void mem_install_out_of_memory_handler();
