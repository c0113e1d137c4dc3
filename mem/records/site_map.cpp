#include "mem/records/site_map.h"

constinit MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map = nullptr;

void mem_abandon_sites() {
  mem_abandon(mem_address_tracker_map);
  mem_hot_line.trace_lock.unlocked = 0;
}

MEM_ADDRESS_TRACKER& mem_catch_all_site() { return (*mem_address_tracker_map)[nullptr]; }
