#include "mem/records/live_blocks.h"

#include <new>
#include <utility>

#include "mem/base/check.h"
#include "mem/base/static_storage.h"

constinit MEM_ADDRESS_TRACKER_PTR_MAP_POOL* mem_address_tracker_ptr_map_pool = nullptr;
constinit MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR* mem_address_tracker_ptr_map_allocator = nullptr;
constinit MEM_ADDRESS_TRACKER_PTR_MAP* mem_address_tracker_ptr_map = nullptr;

namespace {

// So many that threads with few live blocks rarely meet on a line of buckets.
constexpr std::size_t first_buckets = 1U << 14;

constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP_POOL> pool_storage;
constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR> allocator_storage;
constinit MEM_STATIC_STORAGE<MEM_ADDRESS_TRACKER_PTR_MAP> map_storage;

void create(MEM_TRACKING_GRANULARITY) {
  if (mem_pools != MEM_POOLS::OF_CHILD) mem_address_tracker_ptr_map_pool = pool_storage.construct();
  mem_address_tracker_ptr_map_allocator =
      allocator_storage.construct(mem_address_tracker_ptr_map_pool);
  mem_address_tracker_ptr_map =
      map_storage.construct(first_buckets, *mem_address_tracker_ptr_map_allocator);
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

void mem_remember_block(void const* block, MEM_ADDRESS_TRACKER& site, bool with_thread) {
  try {
    const MEM_BLOCK_ORIGIN origin = {&site,
                                     with_thread ? std::this_thread::get_id() : std::thread::id()};
    if (mem_address_tracker_ptr_map->insert({block, origin})) [[likely]]
      return;
    // Its release was not seen, on a blocked thread for instance.
    MEM_ADDRESS_TRACKER_PTR_MAP::accessor entry;
    mem_address_tracker_ptr_map->insert(entry, block);
    entry->second = origin;
  } catch (const std::bad_alloc&) {  // its release will be charged to the catch-all
  }
}

MEM_BLOCK_ORIGIN mem_take_block(void const* block) {
  MEM_ADDRESS_TRACKER_PTR_MAP::accessor entry;
  if (!mem_address_tracker_ptr_map->find(entry, block)) return {};
  const MEM_BLOCK_ORIGIN origin = entry->second;
  mem_check(origin.site != nullptr, "address_tracker_ptr != nullptr");
  mem_address_tracker_ptr_map->erase(entry);
  return origin;
}
