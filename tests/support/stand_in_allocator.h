// An allocator with the hook interface of the real one, for sanitizer builds, which bring a malloc
// of their own, and for faults the real one can't produce. Its functions have the names that the
// library searches for; blocks come zeroed from calloc, sizes are rounded up to 16 bytes.
#pragma once

#include <cstddef>

namespace STAND_IN {

/// Allocates and calls the new hooks; the frames between caller and hook are two, as in the real
/// allocator.
void* allocate(std::size_t size);
/// Calls the delete hooks and frees.
void release(void* block);
/// What allocate(size) gives.
constexpr std::size_t rounded(std::size_t size) { return (size + 15) / 16 * 16; }

}  // namespace STAND_IN
