#include "mem/records/live_blocks.h"

#include <cstring>
#include <new>
#include <utility>

#include "mem/base/check.h"
#include "mem/base/static_storage.h"

constinit MEM_ADDRESS_TRACKER_PTR_MAP_POOL* mem_address_tracker_ptr_map_pool = nullptr;
constinit MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR* mem_address_tracker_ptr_map_allocator = nullptr;
constinit MEM_ADDRESS_TRACKER_PTR_MAP* mem_address_tracker_ptr_map = nullptr;

constinit std::array<MEM_LIVE_BLOCK_BANK, 1U << MEM_ADDRESS_TRACKER_PTR_MAP::bank_bits>
    MEM_ADDRESS_TRACKER_PTR_MAP::banks{};

namespace {

constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP_POOL> pool_storage;
constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR> allocator_storage;
constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP> map_storage;

void create(MEM_TRACKING_GRANULARITY) {
  if (mem_pools != MEM_POOLS::OF_CHILD) mem_address_tracker_ptr_map_pool = pool_storage.construct();
  mem_address_tracker_ptr_map_allocator =
      allocator_storage.construct(mem_address_tracker_ptr_map_pool);
  mem_address_tracker_ptr_map = map_storage.construct(*mem_address_tracker_ptr_map_allocator);
}

void free() {
  mem_destroy(mem_address_tracker_ptr_map);
  mem_destroy(mem_address_tracker_ptr_map_allocator);
  mem_destroy(mem_address_tracker_ptr_map_pool);
}

void abandon() {
  mem_abandon(mem_address_tracker_ptr_map);
  mem_abandon(mem_address_tracker_ptr_map_allocator);
  mem_abandon(mem_address_tracker_ptr_map_pool);
}

}  // namespace

constinit const MEM_PART mem_live_blocks_part(MEM_CREATE{create}, MEM_RESET{[] {
                                                mem_address_tracker_ptr_map->clear();
                                              }},
                                              MEM_FREE{free}, MEM_ABANDON{abandon});

// In a child made by fork, the banks are as a map of its parent's had them.
MEM_ADDRESS_TRACKER_PTR_MAP::MEM_ADDRESS_TRACKER_PTR_MAP(
    const MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR& allocator)
    : m_allocator(allocator) {
  static constinit bool was_there_one = false;
  if (std::exchange(was_there_one, true))
    std::memset(static_cast<void*>(banks.data()), 0, sizeof banks);
}

void MEM_ADDRESS_TRACKER_PTR_MAP::clear() {
  for (std::size_t group = 0; group < group_count; ++group)
    if (m_groups_used[group].exchange(false, std::memory_order_relaxed))
      for (std::size_t bank = group * group_size; bank < (group + 1) * group_size; ++bank)
        banks[bank].clear(m_allocator);
}

void mem_remember_block(void const* block, MEM_BLOCK_OWNER owner, bool with_thread) {
  try {
    mem_address_tracker_ptr_map->insert(
        block, {owner, with_thread ? std::this_thread::get_id() : std::thread::id()});
  } catch (const std::bad_alloc&) {  // its release will be charged to the catch-all
  }
}

MEM_BLOCK_ORIGIN mem_take_block(void const* block) {
  MEM_BLOCK_ORIGIN origin;
  if (!mem_address_tracker_ptr_map->take(block, origin)) return {};
  mem_check(origin.owner.site() != nullptr, "address_tracker_ptr != nullptr");
  return origin;
}
