// The exported queries that copy one record out.
#include <mutex>

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/records/counters.h"
#include "mem/records/live_blocks.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/tracker_visit.h"

namespace {

// Null when the block is not known.
MEM_ADDRESS_TRACKER* site_of(void const* block) {
  if (block == nullptr) return &mem_catch_all_site();
  MEM_BLOCK_ORIGIN origin;
  return mem_address_tracker_ptr_map->find(block, origin) ? origin.owner.site() : nullptr;
}

}  // namespace

bool mem_get_address_tracker(void const* block, MEM_ADDRESS_TRACKER& out) {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_address_tracker_map == nullptr) return false;
  MEM_ADDRESS_TRACKER* const site = site_of(block);
  if (site == nullptr) return false;
  {
    const MEM_RECORD_GUARDED guarded(*site);
    mem_copy_figures(*site, out);
  }
  {
    const std::lock_guard trace(mem_trace_lock);
    out.address_info = site->address_info;
    out.filtered = site->filtered;
  }
  const std::lock_guard modules(mem_module_tracker_lock);
  out.module = site->module;
  return true;
}

bool mem_get_module_tracker(std::string const& name, MEMORY_TRACKER_BASE& out) {
  mem_check(mem_tbb_tracker_is_inited(), "mem_tbb_tracker_is_inited()");
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_module_tracker_map == nullptr) return false;
  const std::lock_guard modules(mem_module_tracker_lock);
  const auto found = mem_module_tracker_map->find(std::string_view(name));
  if (found == mem_module_tracker_map->end()) return false;
  out = found->second;
  return true;
}
