// Memory for the tracker's own records. It never comes from the hooked allocator: what the
// profiler needs must not show up in, or call back into, what it measures.
#pragma once

#include <oneapi/tbb/cache_aligned_allocator.h>
#include <oneapi/tbb/tbb_allocator.h>

#include <memory>
#include <string>

// The sanitizers know nothing of oneTBB's pools: a block that one thread frees and another gets is
// a race to one and never a use after free to the other. What they watch has no hooked allocator.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
template <class T>
using MEM_BOOKKEEPING_ALLOCATOR = std::allocator<T>;
template <class T>
using MEM_CACHE_ALIGNED_ALLOCATOR = std::allocator<T>;
#else
template <class T>
using MEM_BOOKKEEPING_ALLOCATOR = tbb::tbb_allocator<T>;
template <class T>
using MEM_CACHE_ALIGNED_ALLOCATOR = tbb::cache_aligned_allocator<T>;
#endif

using MEM_BOOKKEEPING_STRING =
    std::basic_string<char, std::char_traits<char>, MEM_BOOKKEEPING_ALLOCATOR<char>>;
