// The stack walker in use.
#pragma once

#include "mem/base/part.h"
#include "platform/err_unwinder.h"

/// A stack is captured in stages, each only when all frames of those before were looked through:
/// a short trace of 11 frames, then a deep one of 50. The short one itself comes in three, since
/// every frame costs a walk: of 23 million allocations of a static checker, nine in ten stood in
/// the first two frames, and 99 in a hundred in the first three.
inline constexpr int mem_trace_stages[] = {2, 2, 7, 50};
inline constexpr int mem_trace_stage_count = 4;
inline constexpr int mem_deep_trace_depth = 50;

/// From initialisation to the end of the process.
extern ERR_UNWINDER* mem_tbb_unwinder;

/// Chosen by KORVANE_MEM_PROFILE_UNWINDER; empty and "default" mean "eh_frame_internal". An unknown
/// name is an internal error.
extern const MEM_PART mem_unwinder_part;
