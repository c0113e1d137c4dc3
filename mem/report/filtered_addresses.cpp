#include <mutex>
#include <ostream>

#include "mem/records/site_map.h"
#include "mem/report/shutdown_reports.h"

namespace {

void write_row(std::ostream& out, const MEM_ADDRESS_INFO& info) {
  out << '"' << info.address << "\",\"" << info.module_name_buffer << "\",\""
      << info.function_name_buffer << "\",\"";
  if (*info.file_name_buffer != '\0') out << info.file_name_buffer << ':' << info.line;
  out << "\"\n";
}

}  // namespace

void mem_write_filtered_addresses(std::ostream& out) {
  const std::lock_guard trace(mem_trace_lock);
  out << "\"PC\",\"module\",\"function\",\"fileline\"" << std::endl;
  for (const auto& [address, site] : *mem_address_tracker_map)
    if (site.filtered) write_row(out, site.address_info);
}
