// Every live tracked block: which site allocated it, on which thread.
#pragma once

#define TBB_PREVIEW_MEMORY_POOL 1
#include <oneapi/tbb/memory_pool.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <new>
#include <thread>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/records/block_bank.h"
#include "mem/records/call_path.h"

/// Where a live block comes from. The thread is only noted under fileline tracking and call paths.
struct MEM_BLOCK_ORIGIN {
  MEM_BLOCK_OWNER owner;
  std::thread::id thread{};
};

using MEM_ADDRESS_TRACKER_PTR_MAP_POOL = tbb::memory_pool<MEM_BOOKKEEPING_ALLOCATOR<char>>;
using MEM_LIVE_BLOCK_BANK = MEM_BLOCK_BANK<MEM_BLOCK_ORIGIN>;

/// Of the pool; without one, in a child that is tracked, as all bookkeeping.
class MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR {
 public:
  using PLACE = MEM_LIVE_BLOCK_BANK::PLACE;

  explicit MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR(MEM_ADDRESS_TRACKER_PTR_MAP_POOL* pool)
      : m_pool(pool) {}

  /// May throw std::bad_alloc.
  PLACE* allocate(std::size_t count) {
    if (is_apart_from_pool()) [[unlikely]]
      return MEM_BOOKKEEPING_ALLOCATOR<PLACE>().allocate(count);
    void* const places = m_pool->malloc(count * sizeof(PLACE));
    if (places == nullptr) throw std::bad_alloc();
    return static_cast<PLACE*>(places);
  }
  void deallocate(PLACE* places, std::size_t count) {
    if (is_apart_from_pool()) [[unlikely]]
      return MEM_BOOKKEEPING_ALLOCATOR<PLACE>().deallocate(places, count);
    m_pool->free(places);
  }

 private:
  bool is_apart_from_pool() const {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)  // see bookkeeping.h
    return true;
#else
    return m_pool == nullptr;
#endif
  }

  MEM_ADDRESS_TRACKER_PTR_MAP_POOL* m_pool;
};

/// The blocks of a page have a bank together: what a program touches together is together here, in
/// few lines of cache and few pages.
class MEM_ADDRESS_TRACKER_PTR_MAP {
 public:
  explicit MEM_ADDRESS_TRACKER_PTR_MAP(const MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR& allocator);
  MEM_ADDRESS_TRACKER_PTR_MAP(const MEM_ADDRESS_TRACKER_PTR_MAP&) = delete;
  MEM_ADDRESS_TRACKER_PTR_MAP& operator=(const MEM_ADDRESS_TRACKER_PTR_MAP&) = delete;
  ~MEM_ADDRESS_TRACKER_PTR_MAP() { clear(); }

  /// May throw std::bad_alloc.
  void insert(void const* block, const MEM_BLOCK_ORIGIN& origin) {
    MEM_LIVE_BLOCK_BANK& bank = bank_of(block);
    if (bank.insert(block, origin, m_allocator)) [[unlikely]]
      group_of(bank).store(true, std::memory_order_relaxed);
  }
  bool find(void const* block, MEM_BLOCK_ORIGIN& origin) {
    return bank_of(block).find(block, origin);
  }
  bool take(void const* block, MEM_BLOCK_ORIGIN& origin) {
    return bank_of(block).take(block, origin);
  }
  /// Inside as the cat.
  void clear();

 private:
  static constexpr int bank_bits = 16;
  static constexpr int page_bits = 12;

  static MEM_LIVE_BLOCK_BANK& bank_of(void const* block) {
    const std::uintptr_t page = reinterpret_cast<std::uintptr_t>(block) >> page_bits;
    return banks[mem_spread_bits(page) >> (64 - bank_bits)];
  }

  // The banks in one page of memory. Of those that no block has come to, none is looked at: a short
  // process would pay for their pages.
  static constexpr std::size_t group_size = (1U << page_bits) / sizeof(MEM_LIVE_BLOCK_BANK);
  static constexpr std::size_t group_count = (1U << bank_bits) / group_size;
  std::atomic<bool>& group_of(const MEM_LIVE_BLOCK_BANK& bank) {
    return m_groups_used[static_cast<std::size_t>(&bank - banks.data()) / group_size];
  }

  MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR m_allocator;
  std::array<std::atomic<bool>, group_count> m_groups_used{};
  // Zeros that nobody has touched take no memory: there is one map at a time, and its banks are not
  // in it.
  static std::array<MEM_LIVE_BLOCK_BANK, 1U << bank_bits> banks;
};

/// All three from initialisation to cleanup, the pool not in a child.
extern MEM_ADDRESS_TRACKER_PTR_MAP_POOL* mem_address_tracker_ptr_map_pool;
extern MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR* mem_address_tracker_ptr_map_allocator;
extern MEM_ADDRESS_TRACKER_PTR_MAP* mem_address_tracker_ptr_map;

/// Creating it throws std::runtime_error("Can't create pool").
extern const MEM_PART mem_live_blocks_part;

/// Remembers a block. One that the pool has no room for stays unknown.
void mem_remember_block(void const* block, MEM_BLOCK_OWNER owner, bool with_thread);

/// Forgets a block and returns where it came from; no site when it was not known.
MEM_BLOCK_ORIGIN mem_take_block(void const* block);
