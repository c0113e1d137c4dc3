// The host's out-of-memory handler.
#pragma once

/// Called instead of the library's own report; null at load.
extern void (*mem_out_of_memory_func_ptr)();
