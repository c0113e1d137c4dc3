#include "mem/records/block_bins.h"

#include <oneapi/tbb/concurrent_hash_map.h>

#include <array>
#include <atomic>
#include <new>

#include "mem/base/bookkeeping.h"
#include "mem/base/static_storage.h"
#include "mem/records/live_blocks.h"

namespace {

using MEM_HASH_BANK = tbb::concurrent_hash_map<
    void const*, MEM_BLOCK_BINS, MEM_BLOCK_HASH,
    MEM_BOOKKEEPING_ALLOCATOR<std::pair<void const* const, MEM_BLOCK_BINS>>>;
constexpr std::size_t bank_count = 4096;
using BANKS = std::array<MEM_HASH_BANK, bank_count>;

constinit MEM_STATIC_STORAGE<BANKS> storage;
// Created while events go on: those that look meanwhile find none, or all.
constinit std::atomic<BANKS*> mem_addr_to_bpin_pair_hash = nullptr;

MEM_HASH_BANK& bank_of(void const* block) {
  return (*mem_addr_to_bpin_pair_hash.load(
      std::memory_order_acquire))[reinterpret_cast<std::uintptr_t>(block) & (bank_count - 1)];
}

}  // namespace

void mem_create_block_bins() {
  if (mem_addr_to_bpin_pair_hash == nullptr) mem_addr_to_bpin_pair_hash = storage.construct();
}

bool mem_remember_block_bins(void const* block, const MEM_BLOCK_BINS& bins) try {
  MEM_HASH_BANK::accessor entry;
  bank_of(block).insert(entry, block);
  entry->second = bins;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::optional<MEM_BLOCK_BINS> mem_take_block_bins(void const* block) {
  if (mem_addr_to_bpin_pair_hash == nullptr) return std::nullopt;
  MEM_HASH_BANK::accessor entry;
  MEM_HASH_BANK& bank = bank_of(block);
  if (!bank.find(entry, block)) return std::nullopt;
  const MEM_BLOCK_BINS bins = entry->second;
  bank.erase(entry);
  return bins;
}

constinit const MEM_PART mem_block_bins_part(
    MEM_CREATE{mem_nothing},  // the first granularity that has the bit creates them
    MEM_RESET{mem_nothing},   // blocks from before still credit their bins
    MEM_FREE{[] {
      BANKS* banks = mem_addr_to_bpin_pair_hash.exchange(nullptr);
      mem_destroy(banks);
    }},
    MEM_ABANDON{[] {
      BANKS* banks = mem_addr_to_bpin_pair_hash.exchange(nullptr);
      mem_abandon(banks);
    }});
