#include "malloc/block_size.h"

#include "malloc/attention.h"
#include "malloc/early_blocks.h"
#include "malloc/next_definition.h"

std::size_t mem_block_size(void* block) {
  if (!mem_needs_no_attention()) {
    if (mem_is_early_block(block)) return mem_early_block_size(block);
    if (mem_is_called_by_the_search()) return 0;
  }
  return MEM_NEXT<std::size_t(void*), "malloc_usable_size">::call(block);
}
