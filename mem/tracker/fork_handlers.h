// A child made by fork without exec.
#pragma once

#include "include/tuk_mem.h"

/// Registers the fork handler, once per process. Whatever the parent's other threads were changing
/// is left alone in the child. It has tracking off for good and writes no report, or, where that
/// was asked for, begins with empty books and writes its own. The parent goes on untouched.
void mem_register_fork_handlers(MEM_TRACKING_GRANULARITY granularity);

/// Brings the tracker up again in a child that has let go of everything. May throw std::bad_alloc.
void mem_track_in_child(MEM_TRACKING_GRANULARITY granularity);

/// The first thing of the library's end, where one takes time: keeps the C library's list of
/// handlers from being shorter than a thread that is about to fork takes it for.
void mem_pad_fork_handlers();
