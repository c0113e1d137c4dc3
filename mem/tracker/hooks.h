// What the allocator calls after every allocation and before every release.
#pragma once

#include <cstddef>

#include "include/tuk_mem.h"

/// Ignore blocks of other allocators. The work of a thread that is blocked or inside the tracker
/// is counted in mem_profiler_stats only; everything else is accounted. No exception leaves.
void mem_tcmalloc_tracker_new_hook(void const* ptr, std::size_t requested);
void mem_tcmalloc_tracker_delete_hook(void const* ptr);

/// What the delete hook does with a block of its allocator, and what the removal of a mapping does.
void mem_account_release(void const* ptr, std::size_t allocated);

/// Install and remove the hooks; nothing when they are already, or not, in place. Hold
/// mem_granularity_lock, or initialise.
void mem_install_tracker_hooks();
void mem_remove_tracker_hooks();
/// In a child made by fork: they stay where they are. A thread that is gone may have locked the
/// allocator's list.
void mem_keep_tracker_hooks();

/// One line on standard error, once, when no block of malloc comes to the hooks: reports full of
/// zeros must not pass for the truth. Hold no lock.
void mem_say_if_nothing_is_hooked();

/// Takes bits from the granularity, and the hooks away where none is left. The same condition.
void mem_switch_tracking_off(MEM_TRACKING_GRANULARITY bits);
