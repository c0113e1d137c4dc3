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

}  // namespace

void mem_create_live_block_map() {
  mem_address_tracker_ptr_map_pool = new MEM_ADDRESS_TRACKER_PTR_MAP_POOL;
  mem_address_tracker_ptr_map_allocator =
      new MEM_ADDRESS_TRACKER_PTR_MAP_ALLOCATOR(*mem_address_tracker_ptr_map_pool);
  mem_address_tracker_ptr_map =
      new MEM_ADDRESS_TRACKER_PTR_MAP(first_buckets, *mem_address_tracker_ptr_map_allocator);
}

void mem_free_live_block_map() {
  delete std::exchange(mem_address_tracker_ptr_map, nullptr);
  delete std::exchange(mem_address_tracker_ptr_map_allocator, nullptr);
  delete std::exchange(mem_address_tracker_ptr_map_pool, nullptr);
}

void mem_abandon_live_blocks() {
  mem_abandon(mem_address_tracker_ptr_map);
  mem_abandon(mem_address_tracker_ptr_map_allocator);
  mem_abandon(mem_address_tracker_ptr_map_pool);
}

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
