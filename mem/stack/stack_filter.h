// Reducing a captured stack to the one site that stands for the allocation.
#pragma once

#include <atomic>
#include <mutex>

#include "include/tuk_mem.h"
#include "mem/base/part.h"
#include "mem/records/site_map.h"
#include "mem/symbolizer/symbolizer.h"

/// The symbolizer in use, from initialisation to the end of the process.
extern MEM_SYMBOLIZER* mem_tbb_symbolizer;

/// Chosen by the setting "mem_symbolizer" when the tracker comes up, and said when something is
/// going to be tracked; its tools end with the tracker.
extern const MEM_PART mem_symbolizer_part;

/// Set once any address has been found to be filtered: the filters file is wanted then.
extern std::atomic<bool> mem_want_tbb_filters_file;

/// The record of the first frame, from the innermost, that no rule rejects; the catch-all record
/// when there is none. An address is symbolized once; its verdict is kept for as long as its module
/// is loaded. One that can't be symbolized for now is left out, and asked for again a second later.
///
/// Call inside the cat-and-mouse lock as a mouse, with `lock` owning mem_trace_lock. Both are
/// given up while an unknown address is symbolized, which talks to a child process and may wait
/// for the loader, and held again on return. Null when tracking ended meanwhile.
/// Where the frames come from a walk, the second one that is symbolized is so along with those that
/// the walk would come by next: a stack begins with its site, or has many that are looked through.
MEM_ADDRESS_TRACKER* mem_filter_stack_trace(void const** frames, int count,
                                            std::unique_lock<MEM_TRACE_LOCK>& lock,
                                            class MEM_SITE_WALK* walk = nullptr);
