#include "mem/records/site_map.h"

#include <array>
#include <utility>

constinit MEM_ADDRESS_TRACKER_MAP* mem_address_tracker_map = nullptr;

namespace {

// What the map was asked for of late, one record a place. The map divides twice for a lookup and
// follows three pointers, under the one lock that every allocation takes.
struct PLACE {
  void const* address;
  MEM_ADDRESS_TRACKER* record;
};
constexpr int place_bits = 12;
constinit std::array<PLACE, 1U << place_bits> recently_found{};

PLACE& place_of(void const* address) {
  const auto spread = reinterpret_cast<std::uintptr_t>(address) * 0x9E3779B97F4A7C15ULL;
  return recently_found[spread >> (64 - place_bits)];
}

[[gnu::noinline]] MEM_ADDRESS_TRACKER* find_in_map(void const* address) {
  const auto found = mem_address_tracker_map->find(address);
  if (found == mem_address_tracker_map->end()) return nullptr;
  place_of(address) = {address, &found->second};
  return &found->second;
}

}  // namespace

MEM_ADDRESS_TRACKER* mem_find_site(void const* address) {
  const PLACE& place = place_of(address);
  if (place.address == address && place.record != nullptr) [[likely]]
    return place.record;
  return find_in_map(address);
}

MEM_ADDRESS_TRACKER& mem_catch_all_site() { return (*mem_address_tracker_map)[nullptr]; }

void mem_clear_sites() {
  recently_found.fill({});
  mem_address_tracker_map->clear();
}

void mem_free_site_map() {
  recently_found.fill({});
  delete std::exchange(mem_address_tracker_map, nullptr);
}

void mem_abandon_sites() {
  recently_found.fill({});
  mem_abandon(mem_address_tracker_map);
  mem_hot_line.trace_lock.unlocked = 0;
}
