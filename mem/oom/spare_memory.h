// The spare blocks that are freed when memory runs out, so that the report has some to work with.
// Relies on mem/host, mem/info and mem/allocator.
#pragma once

/// Whether memory has run out. Set by mem_out_of_memory, never cleared; from then on no spare
/// block is allocated.
extern bool mem_out_of_memory_already_reported;

/// Frees the process-wide spare block and the calling thread's.
/// Hold mem_critical_section: it guards the process-wide block.
void mem_release_spare_blocks();

/// Allocates what is missing of the two, unless memory has run out. Hold mem_critical_section.
void mem_reserve_spare_blocks();
