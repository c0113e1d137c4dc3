#include "tests/stress/blocks.h"
#include "tests/support/stand_in_allocator.h"

void* allocate_block(std::size_t size) { return STAND_IN::allocate(size); }
void release_block(void* block) { STAND_IN::release(block); }
