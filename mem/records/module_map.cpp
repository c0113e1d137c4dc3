#include "mem/records/module_map.h"

#include <string_view>

#include "mem/base/static_spin_mutex.h"
#include "mem/base/static_storage.h"

constinit MEM_MODULE_TRACKER_MAP* mem_module_tracker_map = nullptr;

namespace {
// Apart from the data beside it, which every event reads.
alignas(64) constinit MEM_STATIC_SPIN_MUTEX module_tracker_lock_storage;
alignas(64) constinit MEM_STATIC_SPIN_MUTEX module_timeline_lock_storage;
}  // namespace
constinit tbb::spin_mutex& mem_module_tracker_lock = module_tracker_lock_storage.mutex;
constinit tbb::spin_mutex& mem_module_timeline_lock = module_timeline_lock_storage.mutex;

namespace {

[[gnu::noinline]] MEMORY_TRACKER_BASE& find_or_create(std::string_view name) {
  const auto found = mem_module_tracker_map->find(name);
  if (found != mem_module_tracker_map->end()) return found->second;
  return (*mem_module_tracker_map)[MEM_BOOKKEEPING_STRING(name)];
}

}  // namespace

void mem_abandon_modules() {
  mem_abandon(mem_module_tracker_map);
  module_tracker_lock_storage.unlocked = 0;
  module_timeline_lock_storage.unlocked = 0;
}

MEMORY_TRACKER_BASE& mem_module_of(MEM_ADDRESS_TRACKER& site) {
  if (site.module == nullptr) [[unlikely]] {
    char const* name = site.address_info.module_name_buffer;
    site.module = &find_or_create(*name == '\0' ? mem_other_module : name);
  }
  return *site.module;
}
