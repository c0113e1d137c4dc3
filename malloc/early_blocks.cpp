#include "malloc/early_blocks.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t space_size = 32768;  // never used again: zeros need no clearing
alignas(16) constinit unsigned char space[space_size] = {};
constinit std::atomic<std::size_t> used = 0;

// In front of a block.
struct alignas(16) HEADER {
  std::size_t size;
};

HEADER* header_of(void const* block) { return static_cast<HEADER*>(const_cast<void*>(block)) - 1; }

}  // namespace

void* mem_early_block(std::size_t alignment, std::size_t size) {
  alignment = std::max(alignment, alignof(HEADER));
  if (alignment < space_size && size < space_size) {
    const std::size_t taken = sizeof(HEADER) + alignment + ((size + 15) & ~std::size_t{15});
    const std::size_t begin = used.fetch_add(taken);
    if (begin <= space_size && taken <= space_size - begin) {
      const auto first = reinterpret_cast<std::uintptr_t>(space + begin + sizeof(HEADER));
      auto* const block = reinterpret_cast<void*>((first + alignment - 1) & ~(alignment - 1));
      header_of(block)->size = size;
      mem_attention += MEM_ONE_EARLY_BLOCK;
      return block;
    }
  }
  errno = ENOMEM;
  return nullptr;
}

bool mem_is_in_early_space(void const* block) {
  return reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(space) <
         space_size;
}

std::size_t mem_early_block_size(void const* block) { return header_of(block)->size; }

void mem_release_early_block(void const* /*block*/) { mem_attention -= MEM_ONE_EARLY_BLOCK; }

void* mem_move_early_block(void const* block, std::size_t size) {
  void* const moved = std::malloc(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, std::min(size, mem_early_block_size(block)));
  mem_release_early_block(block);
  return moved;
}
