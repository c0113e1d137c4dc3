// Memory for bookkeeping in a child made by fork that is tracked: a thread that is gone may have
// locked the pools, and the host's allocator is what is measured.
#pragma once

#include <cstddef>

/// Begins anew, in the child: nothing is locked, and what its parent had is not given back.
void mem_start_child_memory();

/// Aligned to at most 64 bytes; null where there is no more.
void* mem_take_child_memory(std::size_t bytes);
/// Of the same size. Nothing for memory of anybody else's.
void mem_give_back_child_memory(void* memory, std::size_t bytes);
