#include "mem/records/site_map.h"

#include "mem/host/static_spin_mutex.h"

constinit MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map = nullptr;

namespace {
constinit MEM_STATIC_SPIN_MUTEX trace_lock_storage;
}
constinit tbb::spin_mutex& mem_trace_lock = trace_lock_storage.mutex;

void mem_abandon_sites() {
  mem_address_tracker_map = nullptr;
  trace_lock_storage.unlocked = 0;
}

MEM_ADDRESS_TRACKER& mem_catch_all_site() { return (*mem_address_tracker_map)[nullptr]; }
