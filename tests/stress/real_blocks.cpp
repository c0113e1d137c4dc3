#include <cstdlib>

#include "tests/stress/blocks.h"

[[gnu::noinline]] void* allocate_block(std::size_t size) { return std::malloc(size); }
void release_block(void* block) { std::free(block); }
void prepare_process() {}
