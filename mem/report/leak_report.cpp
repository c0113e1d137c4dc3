#include <fcntl.h>
#include <unistd.h>

#include <iomanip>
#include <mutex>
#include <sstream>

#include "include/tuk_mem.h"
#include "mem/host/message.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/report/report_file.h"
#include "mem/report/shutdown_reports.h"
#include "mem/report/site_order.h"

namespace {

constexpr char const* vx_leak_file = "korvane_vx_leak_warning.txt";
constexpr char const* fast_leak_file = "mem_tbb_fast_leak_warning.log";

bool is_in_vx_mode() { return mem_env_is_on("MEM_LEAK_TRACKING_IN_VX_MODE"); }

// The catch-all can stand below zero: it lost blocks from before tracking.
void write_leaking_site(std::ostream& out, const MEM_ADDRESS_TRACKER& site) {
  const MEM_ADDRESS_INFO& info = site.address_info;
  out << (mem_is_catch_all(site) ? mem_other_module : info.module_name_buffer) << " leaked "
      << site.current_bytes << " bytes in " << static_cast<std::int32_t>(site.current_blocks)
      << " object(s) allocated at " << info.file_name_buffer << ":" << info.line << " "
      << info.function_name_buffer << std::endl;
}

std::string fast_leak_summary() {
  constexpr int number_width = 12;
  std::ostringstream text;
  text << mem_gen_get_module_filename() << " memory leak summary\n"
       << "===============================\n"
       << "Leaked bytes:      " << std::setw(number_width) << mem_get_global_current().bytes << "\n"
       << "Peak bytes on heap:" << std::setw(number_width) << mem_get_global_peak().bytes << "\n"
       << "===============================\n\n";
  return text.str();
}

bool write_whole(int file, const std::string& text) {
  return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

void mem_write_full_leak_report() {
  MEM_REPORT_FILE file(is_in_vx_mode() ? vx_leak_file : mem_report_name("mem_tbb_leak_warning."));
  if (!file.is_open()) return;
  std::ostream& out = file.stream();
  out << "MEM: TBB Leak Checking Summary." << std::endl << std::endl;
  std::int64_t total = 0;
  const std::lock_guard trace(mem_trace_lock);
  for (void const* address : mem_sites_by_peak()) {
    const MEM_ADDRESS_TRACKER& site = mem_address_tracker_map->at(address);
    if (site.current_blocks == 0) continue;
    write_leaking_site(out, site);
    total += site.current_bytes;
  }
  out << "\nTotal leaked bytes: " << total << std::endl;
}

// Processes that end together append one write each, so that their summaries never mix; the one
// that creates the file puts the hint before its own.
void mem_write_fast_leak_report() {
  constexpr mode_t mode = 0666;
  char const* name = is_in_vx_mode() ? vx_leak_file : fast_leak_file;
  std::string text = fast_leak_summary();
  int file = open(name, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (file >= 0)
    text.insert(0, "For more detail, use INI mem_check_leaks=on\n\n");
  else
    file = open(name, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (file < 0) return;
  if (!write_whole(file, text))
    mem_tracker_debug("report %s is incomplete: writing it failed", name);
  close(file);
}
