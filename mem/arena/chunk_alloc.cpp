// The chunk allocator. Relies on mem/host and mem/oom.
#include <cstdlib>
#include <new>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/host/settings.h"
#include "mem/oom/zeroed_block.h"

struct MEM_UTILS_CHUNK_ALLOC::BLOCK {
  BLOCK* next;
  void* address;
};

namespace {

constexpr std::size_t chunk_size = 32768;
constexpr std::size_t least_block_size = 8;
constexpr std::int32_t large_allocations_before_warning = 500;

void* or_out_of_memory(void* block) {
  if (block == nullptr) mem_out_of_memory();
  return block;
}

// Bytes from `address` to the next multiple of `alignment`.
std::size_t gap_at(const void* address, std::size_t alignment) {
  const std::size_t gap = alignment - reinterpret_cast<std::uintptr_t>(address) % alignment;
  return gap == alignment ? 0 : gap;
}

bool read_chunking_enabled() { return !mem_setting_is_on("mem_utils_no_chunk_allocation"); }

}  // namespace

MEM_UTILS_CHUNK_ALLOC::MEM_UTILS_CHUNK_ALLOC() {
  static const bool chunking_enabled = read_chunking_enabled();
  m_chunking_enabled = chunking_enabled;
}

MEM_UTILS_CHUNK_ALLOC::~MEM_UTILS_CHUNK_ALLOC() {
  while (m_blocks != nullptr) delete std::exchange(m_blocks, m_blocks->next);
}

void* MEM_UTILS_CHUNK_ALLOC::chunk_malloc(std::size_t size, std::size_t alignment) {
  if (!m_chunking_enabled) return mem_allocate_zeroed(size == 0 ? least_block_size : size);
  const std::size_t gap = gap_at(m_current, alignment);
  const bool fits = gap <= m_remaining && size <= m_remaining - gap;
  if (!fits || m_current == nullptr) return chunk_malloc_slowly(size, alignment);
  char* const piece = m_current + gap;
  m_remaining -= gap + size;
  m_current = piece + size;
  return piece;
}

void* MEM_UTILS_CHUNK_ALLOC::chunk_malloc_slowly(std::size_t size, std::size_t alignment) {
  if (size > chunk_size) {
    void* const piece = separate_block(size, alignment);
    count_large_allocation();
    return piece;
  }
  if (m_remaining >= m_fragment_threshold) return separate_block(size, alignment);
  return start_chunk(size);
}

void* MEM_UTILS_CHUNK_ALLOC::start_chunk(std::size_t size) {
  auto* const chunk = static_cast<char*>(mem_allocate_zeroed(chunk_size));
  record(chunk);
  m_current = chunk + size;
  m_remaining = chunk_size - size;
  return chunk;
}

// Keeps the current chunk for later pieces.
void* MEM_UTILS_CHUNK_ALLOC::separate_block(std::size_t size, std::size_t alignment) {
  std::size_t count = 0;
  if (__builtin_add_overflow(size, alignment, &count)) mem_out_of_memory();
  auto* const block = static_cast<char*>(mem_allocate_zeroed(count));
  record(block);
  return block + gap_at(block, alignment);
}

void MEM_UTILS_CHUNK_ALLOC::count_large_allocation() {
  if (++m_large_allocations <= large_allocations_before_warning) return;
  // Every time from here on: who watches the messages sees how many there are.
  mem_msg_vdebug(
      "WARNING: More than %d chunk allocations have failed because they are bigger than one chunk "
      "size in tuk/mem_utils\n",
      large_allocations_before_warning);
}

void MEM_UTILS_CHUNK_ALLOC::record(void* block) {
  m_blocks = static_cast<BLOCK*>(or_out_of_memory(new (std::nothrow) BLOCK{m_blocks, block}));
}

void MEM_UTILS_CHUNK_ALLOC::chunk_free_memory() {
  while (m_blocks != nullptr) {
    std::free(m_blocks->address);
    delete std::exchange(m_blocks, m_blocks->next);
  }
  m_current = nullptr;
  m_remaining = 0;
  m_large_allocations = 0;
}

void MEM_UTILS_CHUNK_ALLOC::chunk_delete_when_chunking_disabled(void* piece) {
  if (!m_chunking_enabled) std::free(piece);
}

void MEM_UTILS_CHUNK_ALLOC::set_fragment_threshold(unsigned int bytes) {
  m_fragment_threshold = bytes;
}

bool MEM_UTILS_CHUNK_ALLOC::chunk_allocation_is_enabled() { return m_chunking_enabled; }
