// Zero-filled blocks for the library's own use.
#pragma once

#include <cstddef>

/// A block of malloc, filled with zeros after the allocator's hooks have seen it: a fill pattern
/// for new blocks does not show, and every page is really committed. Ends the process, as
/// mem_out_of_memory does, when there is no memory. Any thread; given back by free.
void* mem_allocate_zeroed(std::size_t size);
