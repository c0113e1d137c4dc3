#include "mem/report/site_order.h"

#include <algorithm>

#include "mem/records/site_map.h"

std::vector<void const*> mem_sites_by_peak() {
  std::vector<void const*> addresses;
  if (mem_address_tracker_map == nullptr) return addresses;
  addresses.reserve(mem_address_tracker_map->size());
  for (const auto& [address, site] : *mem_address_tracker_map) addresses.push_back(address);
  std::sort(addresses.begin(), addresses.end(), [](void const* a, void const* b) {
    return mem_address_tracker_map->at(a).peak_bytes > mem_address_tracker_map->at(b).peak_bytes;
  });
  return addresses;
}
