// The stack walker in use.
#pragma once

#include "mem/base/part.h"
#include "mem/settings/tuning.h"
#include "mem/unwind/stack_walk.h"
#include "platform/err_unwinder.h"

/// From initialisation to the end of the process.
extern ERR_UNWINDER* mem_tbb_unwinder;

/// Whether a MEM_SITE_WALK may stand for its captures.
inline bool mem_unwinder_walks_itself() {
  return mem_tbb_unwinder == mem_unwinder_of_walks && MEM_STACK_TRACE_IGNORE_DEPTH >= 2;
}

/// Chosen by KORVANE_MEM_PROFILE_UNWINDER; empty and "default" mean "eh_frame_internal". An unknown
/// name is an internal error.
extern const MEM_PART mem_unwinder_part;
