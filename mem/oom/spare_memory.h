// The spare blocks that are freed when memory runs out, so that the report has some to work with.
// They are no blocks of the host's: the thread's tracking is blocked while they come and go.
#pragma once

#include <atomic>

/// Whether memory has run out. Set by mem_out_of_memory, never cleared; from then on no spare
/// block is allocated.
extern std::atomic<bool> mem_out_of_memory_already_reported;

/// Frees the process-wide spare block and the calling thread's. Any thread, without a lock.
void mem_release_spare_blocks();

/// Allocates what is missing of the two, unless memory has run out. Hold mem_critical_section.
void mem_reserve_spare_blocks();
