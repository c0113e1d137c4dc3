// Charging and crediting one block at every level that is tracked.
#pragma once

#include <cstddef>

/// Accounts an allocation of `requested` bytes that got `allocated`. Call from a hook only, with
/// the thread marked as inside the tracker: the captured stack counts on exactly three frames of
/// this library, the capture, this function and its caller. May throw std::bad_alloc.
void mem_track_alloc(void const* ptr, std::size_t requested, std::size_t allocated);

/// Accounts a release, before the block is given back. Same conditions.
void mem_track_dealloc(void const* ptr, std::size_t allocated);
