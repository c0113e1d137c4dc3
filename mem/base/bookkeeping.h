// Memory for the tracker's own records. It never comes from the hooked allocator: what the
// profiler needs must not show up in, or call back into, what it measures.
#pragma once

#include <oneapi/tbb/cache_aligned_allocator.h>
#include <oneapi/tbb/tbb_allocator.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "mem/base/child_memory.h"
#include "mem/base/reserve.h"

/// Where the memory comes from.
enum class MEM_POOLS : unsigned char {
  IN_USE,        ///< from oneTBB's pools
  WITH_RESERVE,  ///< memory has run out: what the pools don't have comes from the reserve
  ABANDONED,  ///< in a child made by fork, where a thread that is gone may have locked the pools.
              ///< Nothing is measured there: memory comes from the host's allocator, and none is
              ///< given back
  OF_CHILD    ///< in one that is tracked: from memory of its own
};
extern std::atomic<MEM_POOLS> mem_pools;

/// An allocator that asks POOL, but where that is no use.
template <class T, template <class> class POOL>
class MEM_POOL_ALLOCATOR {
 public:
  using value_type = T;
  template <class OTHER>
  struct rebind {
    using other = MEM_POOL_ALLOCATOR<OTHER, POOL>;
  };

  MEM_POOL_ALLOCATOR() = default;
  template <class OTHER>
  explicit(false) MEM_POOL_ALLOCATOR(const MEM_POOL_ALLOCATOR<OTHER, POOL>&) {}

  T* allocate(std::size_t count) {
    if (mem_pools.load(std::memory_order_relaxed) != MEM_POOLS::IN_USE) [[unlikely]]
      return allocate_elsewhere(count);
    return POOL<T>().allocate(count);
  }
  void deallocate(T* memory, std::size_t count) {
    const MEM_POOLS pools = mem_pools.load(std::memory_order_relaxed);
    if (pools == MEM_POOLS::OF_CHILD) [[unlikely]]
      return mem_give_back_child_memory(memory, bytes_of(count));
    const bool is_the_pools = pools == MEM_POOLS::IN_USE || (pools == MEM_POOLS::WITH_RESERVE &&
                                                             !mem_give_back_to_reserve(memory));
    if (is_the_pools) [[likely]]
      POOL<T>().deallocate(memory, count);
  }
  bool operator==(const MEM_POOL_ALLOCATOR&) const = default;

 private:
  static T* allocate_elsewhere(std::size_t count) {
    if (mem_pools == MEM_POOLS::ABANDONED) return allocate_from_host(count);
    if (mem_pools == MEM_POOLS::OF_CHILD) return allocate_in_child(count);
    try {
      return POOL<T>().allocate(count);
    } catch (const std::bad_alloc&) {
      void* const room = mem_take_from_reserve(bytes_of(count), alignof(T));
      if (room == nullptr) throw;
      return static_cast<T*>(room);
    }
  }

  static T* allocate_in_child(std::size_t count) {
    static_assert(alignof(T) <= 64);
    void* const memory = mem_take_child_memory(bytes_of(count));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }

  static T* allocate_from_host(std::size_t count) {
    constexpr std::size_t alignment = alignof(T) < sizeof(void*) ? sizeof(void*) : alignof(T);
    void* memory = nullptr;
    if (posix_memalign(&memory, alignment, bytes_of(count)) != 0) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }

  // NOLINTNEXTLINE(bugprone-sizeof-expression): a container's buckets may be pointers.
  static std::size_t bytes_of(std::size_t count) { return count * sizeof(T); }
};

// The sanitizers know nothing of oneTBB's pools: a block that one thread frees and another gets is
// a race to one and never a use after free to the other. What they watch has no hooked allocator.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
template <class T>
using MEM_BOOKKEEPING_ALLOCATOR = std::allocator<T>;
template <class T>
using MEM_CACHE_ALIGNED_ALLOCATOR = std::allocator<T>;
#else
template <class T>
using MEM_BOOKKEEPING_ALLOCATOR = MEM_POOL_ALLOCATOR<T, tbb::tbb_allocator>;
template <class T>
using MEM_CACHE_ALIGNED_ALLOCATOR = MEM_POOL_ALLOCATOR<T, tbb::cache_aligned_allocator>;
#endif

using MEM_BOOKKEEPING_STRING =
    std::basic_string<char, std::char_traits<char>, MEM_BOOKKEEPING_ALLOCATOR<char>>;
