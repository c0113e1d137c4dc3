#include "mem/records/module_map.h"

#include <mutex>
#include <string_view>

#include "mem/base/static_storage.h"

constinit MEM_MODULE_TRACKER_MAP* mem_module_tracker_map = nullptr;

// Apart from the data beside it, which every event reads.
alignas(64) constinit MEM_MODULE_LOCK mem_module_tracker_lock;
alignas(64) constinit MEM_TIMELINE_READER_LOCK mem_module_timeline_lock;

namespace {

constinit MEM_STATIC_STORAGE<MEM_MODULE_TRACKER_MAP> storage;

[[gnu::noinline]] MEMORY_TRACKER_BASE& find_or_create(std::string_view name) {
  const auto found = mem_module_tracker_map->find(name);
  if (found != mem_module_tracker_map->end()) return found->second;
  return (*mem_module_tracker_map)[MEM_BOOKKEEPING_STRING(name)];
}

}  // namespace

MEMORY_TRACKER_BASE& mem_module_of(MEM_ADDRESS_TRACKER& site) {
  if (site.module == nullptr) [[unlikely]] {
    char const* name = site.address_info.module_name_buffer;
    site.module = &find_or_create(*name == '\0' ? mem_other_module : name);
  }
  return *site.module;
}

constinit const MEM_PART mem_module_map_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_module_tracker_map = storage.construct(); }},
    MEM_RESET{[] {
      const std::lock_guard modules(mem_module_tracker_lock);
      mem_module_tracker_map->clear();
    }},
    MEM_FREE{[] { mem_destroy(mem_module_tracker_map); }}, MEM_ABANDON{[] {
      mem_abandon(mem_module_tracker_map);
      mem_module_tracker_lock.abandon();
      mem_module_timeline_lock.abandon();
    }});
