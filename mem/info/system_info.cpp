// Queries about the machine's memory.
#include <atomic>

#include "include/tuk_mem.h"
#include "mem/info/proc_files.h"

namespace {

constinit std::atomic<std::uint64_t> system_peak_physical_in_use = 0;
constinit std::atomic<std::uint64_t> system_peak_page_file_in_use = 0;

std::uint64_t swap_in_use(const char* caller, std::atomic<std::uint64_t>& peak) {
  MEM_LINUX_PROC_MEMINFO_T meminfo;
  const std::uint64_t bytes =
      meminfo.read(caller) == 0 ? (meminfo.swap_total - meminfo.swap_free) * 1024 : 0;
  std::uint64_t known = peak;
  while (known < bytes && !peak.compare_exchange_weak(known, bytes)) {
  }
  return bytes;
}

}  // namespace

std::uint64_t mem_info_get_system_current_physical_in_use() {
  return swap_in_use(__func__, system_peak_physical_in_use);
}

std::uint64_t mem_info_get_system_peak_physical_in_use() {
  mem_info_get_system_current_physical_in_use();
  return system_peak_physical_in_use;
}

std::uint64_t mem_info_get_system_current_page_file_in_use() {
  return swap_in_use(__func__, system_peak_page_file_in_use);
}

std::uint64_t mem_info_get_system_peak_page_file_in_use() {
  mem_info_get_system_current_page_file_in_use();
  return system_peak_page_file_in_use;
}
