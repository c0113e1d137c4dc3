// What every thread started through the host's thread library runs through.
#pragma once

#include "platform/thr_thread.h"

/// The wrapper installed before this library's; start-up fills it.
extern THR_WRAPPER mem_next_thread_wrapper;

/// Gives the thread its spare block and the out-of-memory handler, runs it through the next
/// wrapper and takes the spare blocks back.
void* mem_thread_wrapper(THR_FUNCTION function, void* argument);
