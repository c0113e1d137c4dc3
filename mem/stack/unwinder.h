// The stack walker in use.
#pragma once

#include "platform/err_unwinder.h"

/// Frames of the first, short capture and of the deep one that follows when it found nothing.
inline constexpr int mem_short_trace_depth = 11;
inline constexpr int mem_deep_trace_depth = 50;

/// From initialisation to the end of the process.
extern ERR_UNWINDER* mem_tbb_unwinder;

/// Chooses the walker by name; empty and "default" mean "eh_frame_internal". An unknown name is
/// an internal error.
void mem_select_unwinder(char const* name);

/// Switches the cache of frame descriptions on for the walkers that profit from it.
void mem_prepare_unwinder();
