#include "mem/base/child_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <mutex>

#include "mem/base/spin_lock.h"

namespace {

constexpr std::size_t line = 64;
constexpr std::size_t largest_of_lines = 512;
constexpr std::size_t first_chunk = std::size_t{1} << 20;
constexpr int most_chunks = 40;  // each is at least twice the one before
constexpr int class_count = 80;

struct FREE_BLOCK {
  FREE_BLOCK* next;
};
struct CHUNK {
  char* begin;
  char* end;
};

constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::CHILD_MEMORY> lock;
// The rest is guarded by the lock.
constinit CHUNK chunks[most_chunks]{};
constinit int chunk_count = 0;
constinit char* unused = nullptr;  // in the last chunk
constinit FREE_BLOCK* free_blocks[class_count]{};

// Small blocks are multiples of 16 bytes, larger ones of a line, the largest powers of two.
struct SIZE_CLASS {
  std::size_t size;
  int index;

  explicit SIZE_CLASS(std::size_t bytes) {
    constexpr std::size_t step = 16;
    bytes = std::max<std::size_t>(bytes, 1);
    if (bytes <= largest_of_lines) {
      const std::size_t unit = bytes < line ? step : line;
      size = (bytes + unit - 1) & ~(unit - 1);
      index = static_cast<int>(size / step);
    } else {
      size = std::bit_ceil(bytes);
      index = static_cast<int>(largest_of_lines / step) + std::countr_zero(size) - 9;
    }
  }
};

bool add_chunk(std::size_t bytes) {
  if (chunk_count == most_chunks) return false;
  const std::size_t twice_the_last =
      chunk_count == 0 ? first_chunk
                       : 2 * static_cast<std::size_t>(chunks[chunk_count - 1].end -
                                                      chunks[chunk_count - 1].begin);
  const std::size_t size = std::max(twice_the_last, std::bit_ceil(bytes));
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  unused = static_cast<char*>(memory);
  chunks[chunk_count++] = {unused, unused + size};
  return true;
}

void* take_unused(std::size_t size) {
  if (size >= line) {
    const auto address = reinterpret_cast<std::uintptr_t>(unused);
    unused += (address + line - 1) / line * line - address;
  }
  const bool fits = chunk_count > 0 && unused <= chunks[chunk_count - 1].end &&
                    size <= static_cast<std::size_t>(chunks[chunk_count - 1].end - unused);
  if (!fits && !add_chunk(size)) return nullptr;
  void* const block = unused;
  unused += size;
  return block;
}

bool is_ours(void const* memory) {
  return std::any_of(chunks, chunks + chunk_count, [memory](const CHUNK& chunk) {
    return memory >= chunk.begin && memory < chunk.end;
  });
}

}  // namespace

void mem_start_child_memory() {
  lock.abandon();
  chunk_count = 0;
  unused = nullptr;
  std::fill(std::begin(free_blocks), std::end(free_blocks), nullptr);
}

void* mem_take_child_memory(std::size_t bytes) {
  const SIZE_CLASS wanted(bytes);
  if (wanted.index >= class_count) return nullptr;
  const std::lock_guard guard(lock);
  FREE_BLOCK* const block = free_blocks[wanted.index];
  if (block == nullptr) return take_unused(wanted.size);
  free_blocks[wanted.index] = block->next;
  return block;
}

void mem_give_back_child_memory(void* memory, std::size_t bytes) {
  const SIZE_CLASS given(bytes);
  const std::lock_guard guard(lock);
  if (!is_ours(memory)) return;
  auto* const block = static_cast<FREE_BLOCK*>(memory);
  block->next = free_blocks[given.index];
  free_blocks[given.index] = block;
}
