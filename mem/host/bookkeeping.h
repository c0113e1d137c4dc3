// Memory for the tracker's own records. It never comes from the hooked allocator: what the
// profiler needs must not show up in, or call back into, what it measures.
#pragma once

#include <oneapi/tbb/tbb_allocator.h>

#include <string>

template <class T>
using MEM_BOOKKEEPING_ALLOCATOR = tbb::tbb_allocator<T>;

using MEM_BOOKKEEPING_STRING =
    std::basic_string<char, std::char_traits<char>, MEM_BOOKKEEPING_ALLOCATOR<char>>;
