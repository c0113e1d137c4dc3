// Every live block's profile bin and tag, under detailed bin tracking.
#pragma once

#include <cstdint>
#include <optional>

#include "mem/base/part.h"

/// The ids that were current when a block was allocated, and how many resets there had been.
struct MEM_BLOCK_BINS {
  std::uint32_t bin;
  std::uint32_t tag;
  std::uint32_t reset_count;
};

/// Creates the banks before the granularity first asks for them: they take 128 KB, and a tenth of a
/// millisecond. Hold mem_granularity_lock, or initialise.
void mem_create_block_bins();
extern const MEM_PART mem_block_bins_part;

/// Remembers a block; false, for want of memory. Like the next, inside the tracker's lock.
bool mem_remember_block_bins(void const* block, const MEM_BLOCK_BINS& bins);

/// Forgets a block and returns its bins; nothing when it was never charged to any.
std::optional<MEM_BLOCK_BINS> mem_take_block_bins(void const* block);
