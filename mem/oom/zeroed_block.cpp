#include "mem/oom/zeroed_block.h"

#include <string.h>

#include <cstdlib>

#include "include/tuk_mem.h"

// Not by calloc, nor by memset, of which the compiler makes calloc: that fills before the hooks,
// and leaves fresh pages untouched.
void* mem_allocate_zeroed(std::size_t size) {
  void* const block = std::malloc(size);
  if (block == nullptr) mem_out_of_memory();
  explicit_bzero(block, size);
  return block;
}
