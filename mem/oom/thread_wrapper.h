// What every thread started through the host's thread library runs through.
#pragma once

#include "platform/thr_thread.h"

/// The wrapper installed before this library's.
extern THR_WRAPPER mem_next_thread_wrapper;

/// Gives the thread its spare block and the out-of-memory handler, runs it through the next
/// wrapper and takes the spare blocks back, also when the thread ends by pthread_exit or is
/// cancelled.
void* mem_thread_wrapper(THR_FUNCTION function, void* argument);

/// Puts mem_thread_wrapper in front of every thread started from now on. Once in a process: a
/// start-up after the last teardown finds it in the host's chain, wherever it stands by then.
void mem_install_thread_wrapper();
