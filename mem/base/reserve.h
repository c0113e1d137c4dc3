// Memory kept back while the process is tracked, so that its reports can be written when there is
// no other left.
#pragma once

#include <cstddef>

#include "mem/base/part.h"

/// Created where something is tracked; an open reserve is never given back.
extern const MEM_PART mem_reserve_part;

/// Keeps `bytes` more from now on: what the reports will need for a record that has come to exist.
/// Where they can't be had, the reserve stays as it is. Any thread; may hold any lock.
void mem_add_to_reserve(std::size_t bytes);

/// From now on, to the end of the process, bookkeeping that finds its pools empty is served from
/// the reserve. Any thread.
void mem_open_reserve();

/// Null when so much is not left.
void* mem_take_from_reserve(std::size_t bytes, std::size_t alignment);

/// False when the memory is not the reserve's.
bool mem_give_back_to_reserve(void* memory);
