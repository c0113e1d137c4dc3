#include "mem/records/block_bins.h"

#include <array>
#include <atomic>
#include <new>

#include "mem/base/bookkeeping.h"
#include "mem/base/static_storage.h"
#include "mem/records/block_bank.h"

namespace {

using MEM_HASH_BANK = MEM_BLOCK_BANK<MEM_BLOCK_BINS>;
constexpr std::size_t bank_count = 4096;
struct BANKS : std::array<MEM_HASH_BANK, bank_count> {
  MEM_BOOKKEEPING_ALLOCATOR<MEM_HASH_BANK::PLACE> allocator;

  ~BANKS() {
    for (MEM_HASH_BANK& bank : *this) bank.clear(allocator);
  }
};

constinit MEM_STATIC_STORAGE<BANKS> storage;
// Created while events go on: those that look meanwhile find none, or all.
constinit std::atomic<BANKS*> mem_addr_to_bpin_pair_hash = nullptr;

MEM_HASH_BANK& bank_of(BANKS& banks, void const* block) {
  return banks[reinterpret_cast<std::uintptr_t>(block) & (bank_count - 1)];
}

}  // namespace

void mem_create_block_bins() {
  if (mem_addr_to_bpin_pair_hash == nullptr) mem_addr_to_bpin_pair_hash = storage.construct();
}

bool mem_remember_block_bins(void const* block, const MEM_BLOCK_BINS& bins) try {
  BANKS& banks = *mem_addr_to_bpin_pair_hash.load(std::memory_order_acquire);
  bank_of(banks, block).insert(block, bins, banks.allocator);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::optional<MEM_BLOCK_BINS> mem_take_block_bins(void const* block) {
  BANKS* const banks = mem_addr_to_bpin_pair_hash.load(std::memory_order_acquire);
  MEM_BLOCK_BINS bins{};
  if (banks == nullptr || !bank_of(*banks, block).take(block, bins)) return std::nullopt;
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
      BANKS* banks = mem_addr_to_bpin_pair_hash;
      mem_abandon(banks);
      mem_addr_to_bpin_pair_hash = banks;
    }});
