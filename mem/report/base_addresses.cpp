#include <map>
#include <mutex>
#include <ostream>
#include <string_view>

#include "mem/records/site_map.h"
#include "mem/report/shutdown_reports.h"

namespace {

struct MODULE_PLACE {
  void const* base;
  std::string_view path;
};

// The record's texts stay where they are while the trace lock is held.
using MODULE_PLACES = std::map<std::string_view, MODULE_PLACE>;

bool was_charged(const MEM_ADDRESS_TRACKER& site) {
  return !site.filtered && !mem_is_catch_all(site) && site.cumulative_bytes != 0;
}

MODULE_PLACES charged_modules() {
  MODULE_PLACES places;
  for (const auto& [address, site] : *mem_address_tracker_map) {
    const MEM_ADDRESS_INFO& info = site.address_info;
    if (was_charged(site))
      places.try_emplace(info.module_name_buffer, MODULE_PLACE{info.module_base, info.module_path});
  }
  return places;
}

}  // namespace

void mem_write_base_addresses(std::ostream& out) {
  const std::lock_guard trace(mem_trace_lock);
  out << "\"base address\",\"module\",\"dll_path\"" << std::endl;
  for (const auto& [name, place] : charged_modules())
    out << '"' << place.base << "\",\"" << name << "\",\"" << place.path << "\"\n";
}
