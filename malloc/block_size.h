// The size of a block.
#pragma once

#include <cstddef>

/// Bytes that the allocator gave a block of malloc; 0 for null.
std::size_t mem_block_size(void* block);
