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

/// Set in a child made by fork, where a thread that is gone may have locked oneTBB's pools. Nothing
/// is measured there: memory comes from the host's allocator, and none is given back.
extern std::atomic<bool> mem_pools_are_abandoned;

/// An allocator that asks POOL, but for a forked child.
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
    if (mem_pools_are_abandoned.load(std::memory_order_relaxed)) [[unlikely]]
      return allocate_from_host(count);
    return POOL<T>().allocate(count);
  }
  void deallocate(T* memory, std::size_t count) {
    if (!mem_pools_are_abandoned.load(std::memory_order_relaxed)) [[likely]]
      POOL<T>().deallocate(memory, count);
  }
  bool operator==(const MEM_POOL_ALLOCATOR&) const = default;

 private:
  static T* allocate_from_host(std::size_t count) {
    constexpr std::size_t alignment = alignof(T) < sizeof(void*) ? sizeof(void*) : alignof(T);
    void* memory = nullptr;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): a container's buckets may be pointers.
    if (posix_memalign(&memory, alignment, count * sizeof(T)) != 0) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
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
