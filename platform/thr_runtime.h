// The host's process-wide runtime services.
#pragma once

#include "export.h"

/// The calling process's id.
PLATFORM_API int thr_getpid();

/// Stops in a debugger when one is attached. The default does nothing.
PLATFORM_API void thr_debug_break();

/// Address of the exported function `name` in the library `handle`, or anywhere in the process
/// when `handle` is null; null when there is none.
PLATFORM_API void* thr_drl_find_function(void* handle, char const* name);

/// Registers the function that the runtime calls when an allocation fails. The default registers
/// it as the C++ new-handler, which is process-wide.
PLATFORM_API void thr_set_new_handler(void (*handler)());

/// The host allocator build's switch: 1 makes a failing malloc call the new-handler. The default
/// does nothing.
PLATFORM_API void tbbk_set_new_mode(int mode);
