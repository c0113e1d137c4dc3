// The stack walker in use.
#pragma once

#include "platform/err_unwinder.h"

/// A stack is captured in stages, each only when all frames of those before were looked through:
/// a short trace of 11 frames, then a deep one of 50. The short one itself comes in two, since a
/// walk costs 5.6 ns a frame and nearly every site is one of the first two.
inline constexpr int mem_trace_stages[] = {2, 9, 50};
inline constexpr int mem_trace_stage_count = 3;
inline constexpr int mem_deep_trace_depth = 50;

/// From initialisation to the end of the process.
extern ERR_UNWINDER* mem_tbb_unwinder;

/// Chooses the walker by name; empty and "default" mean "eh_frame_internal". An unknown name is
/// an internal error.
void mem_select_unwinder(char const* name);

/// Switches the cache of frame descriptions on for the walkers that profit from it.
void mem_prepare_unwinder();
