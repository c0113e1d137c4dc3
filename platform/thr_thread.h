// The host's thread start function and the chain of wrappers that every thread runs through.
#pragma once

#include <pthread.h>

#include "export.h"

using THR_FUNCTION = void* (*)(void* argument);

/// Runs a thread: does its own work and calls the wrapper that was installed before it with the
/// same two arguments, whose result it returns.
using THR_WRAPPER = void* (*)(THR_FUNCTION function, void* argument);

/// Installs `wrapper` as the outermost one and hands back the one before it (never null: the
/// innermost wrapper calls the function), which `previous` holds before the first thread can run
/// through `wrapper`. Affects threads started from now on. Any thread; install a wrapper once.
PLATFORM_API void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* previous);

/// Starts a thread that runs function(argument) through the wrapper chain. Returns 0, or the
/// error number of pthread_create. Takes nothing from the heap but what pthread_create takes.
PLATFORM_API int thr_thread_create(pthread_t* thread, THR_FUNCTION function, void* argument);

/// Waits for a thread and hands back its function's result. Returns 0 or an error number.
PLATFORM_API int thr_thread_join(pthread_t thread, void** result);
