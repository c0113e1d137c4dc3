// Blocks for the search for the next definitions: the loader may allocate meanwhile.
#pragma once

#include <cstddef>

#include "malloc/attention.h"

/// Zero-filled; null, and ENOMEM, when the space is used up. `alignment` is a power of two. As long
/// as one lives, every call needs attention.
void* mem_early_block(std::size_t alignment, std::size_t size);

bool mem_is_in_early_space(void const* block);
inline bool mem_is_early_block(void const* block) {
  return mem_attention >= MEM_ONE_EARLY_BLOCK && mem_is_in_early_space(block);
}

/// Of an early block.
std::size_t mem_early_block_size(void const* block);
void mem_release_early_block(void const* block);

/// What realloc does with an early block. The new one is of malloc.
void* mem_move_early_block(void const* block, std::size_t size);
