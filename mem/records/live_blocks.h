// Every live tracked block: which site allocated it, on which thread.
#pragma once

#include <oneapi/tbb/concurrent_hash_map.h>
#define TBB_PREVIEW_MEMORY_POOL 1
#include <oneapi/tbb/memory_pool.h>

#include <new>
#include <thread>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/records/block_mutex.h"

/// Where a live block comes from. The thread is only noted under fileline tracking.
struct MEM_BLOCK_ORIGIN {
  MEM_ADDRESS_TRACKER* site = nullptr;
  std::thread::id thread{};
};

/// Blocks are aligned to 16 bytes at least, and lie in runs: the low bits say nothing, and a
/// multiplication spreads the others over the bits the map picks its bucket by.
struct MEM_BLOCK_HASH {
  static std::size_t hash(void const* block) {
    const auto bits = reinterpret_cast<std::uintptr_t>(block) * 0x9E3779B97F4A7C15ULL;
    return bits ^ (bits >> 32);
  }
  static bool equal(void const* a, void const* b) { return a == b; }
};

using MEM_ADDRESS_TRACKER_PTR_MAP_POOL = tbb::memory_pool<MEM_BOOKKEEPING_ALLOCATOR<char>>;
/// Of the pool; without one, in a child that is tracked, as all bookkeeping.
template <class NODE>
class MEM_BLOCK_NODE_ALLOCATOR {
 public:
  using value_type = NODE;

  explicit MEM_BLOCK_NODE_ALLOCATOR(MEM_ADDRESS_TRACKER_PTR_MAP_POOL* pool) : m_pool(pool) {}
  template <class OTHER>
  explicit(false) MEM_BLOCK_NODE_ALLOCATOR(const MEM_BLOCK_NODE_ALLOCATOR<OTHER>& other)
      : m_pool(other.pool()) {}

  NODE* allocate(std::size_t count) {
    if (m_pool == nullptr) [[unlikely]]
      return MEM_BOOKKEEPING_ALLOCATOR<NODE>().allocate(count);
    void* const nodes = m_pool->malloc(count * sizeof(NODE));
    if (nodes == nullptr) throw std::bad_alloc();
    return static_cast<NODE*>(nodes);
  }
  void deallocate(NODE* nodes, std::size_t count) {
    if (m_pool == nullptr) [[unlikely]]
      return MEM_BOOKKEEPING_ALLOCATOR<NODE>().deallocate(nodes, count);
    m_pool->free(nodes);
  }
  MEM_ADDRESS_TRACKER_PTR_MAP_POOL* pool() const { return m_pool; }
  bool operator==(const MEM_BLOCK_NODE_ALLOCATOR&) const = default;

 private:
  MEM_ADDRESS_TRACKER_PTR_MAP_POOL* m_pool;
};

using MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR =
    MEM_BLOCK_NODE_ALLOCATOR<std::pair<void const* const, MEM_BLOCK_ORIGIN>>;
using MEM_ADDRESS_TRACKER_PTR_MAP =
    tbb::concurrent_hash_map<void const*, MEM_BLOCK_ORIGIN, MEM_BLOCK_HASH,
                             MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR, MEM_BLOCK_MUTEX>;

/// All three from initialisation to cleanup, the pool not in a child. The map locks by itself,
/// bucket by bucket.
extern MEM_ADDRESS_TRACKER_PTR_MAP_POOL* mem_address_tracker_ptr_map_pool;
extern MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR* mem_address_tracker_ptr_map_allocator;
extern MEM_ADDRESS_TRACKER_PTR_MAP* mem_address_tracker_ptr_map;

/// Creating it throws std::runtime_error("Can't create pool").
extern const MEM_PART mem_live_blocks_part;

/// Remembers a block. One that the pool has no room for stays unknown.
void mem_remember_block(void const* block, MEM_ADDRESS_TRACKER& site, bool with_thread);

/// Forgets a block and returns where it came from; no site when it was not known.
MEM_BLOCK_ORIGIN mem_take_block(void const* block);
