// Tracked blocks: of the real allocator, or of the stand-in where a sanitizer has its own.
#pragma once

#include <cstddef>

void* allocate_block(std::size_t size);
void release_block(void* block);

/// Before any other thread: what a process needs that allocates these blocks.
void prepare_process();
