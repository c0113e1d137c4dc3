#include <algorithm>
#include <new>
#include <string>

#include "include/tuk_mem.h"
#include "mem/base/standard_error.h"
#include "mem/host/settings.h"
#include "mem/records/module_map.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/report_file.h"
#include "mem/report/report_text.h"
#include "mem/report/shutdown_reports.h"

namespace {

constexpr char const* vx_leak_file = "korvane_vx_leak_warning.txt";
constexpr char const* fast_leak_file = "mem_tbb_fast_leak_warning.log";
constexpr char const* first_hint = "For more detail, use INI mem_check_leaks=on\n\n";

bool is_in_vx_mode() { return mem_setting_is_on("MEM_LEAK_TRACKING_IN_VX_MODE"); }

bool is_leaking(void const*, const MEM_ADDRESS_TRACKER& site) { return site.current_blocks != 0; }

// The catch-all can stand below zero: it lost blocks from before tracking.
void write_leaking_site(MEM_REPORT_TEXT& out, const MEM_SITE_ROW& row) {
  const MEM_ADDRESS_INFO& info = *row.info;
  out << (row.is_catch_all() ? mem_other_module : info.module_name_buffer) << " leaked "
      << row.counters.current_bytes << " bytes in "
      << static_cast<std::int32_t>(row.counters.current_blocks) << " object(s) allocated at "
      << info.file_name_buffer << ":" << info.line << " " << info.function_name_buffer << '\n';
}

void write_leaks(std::ostream& stream) {
  MEM_SITE_SNAPSHOT sites(is_leaking);
  sites.sort_by_peak();
  MEM_REPORT_TEXT out(stream);
  out << "MEM: TBB Leak Checking Summary.\n\n";
  std::int64_t total = 0;
  for (const MEM_SITE_ROW& row : sites.rows()) {
    write_leaking_site(out, row);
    total += row.counters.current_bytes;
  }
  out << "\nTotal leaked bytes: " << total << '\n';
  out.flush();
}

// Right-aligned in a field of 12.
std::string in_field(std::int64_t number) {
  constexpr std::size_t width = 12;
  const std::string digits = std::to_string(number);
  return std::string(width - std::min(width, digits.size()), ' ') + digits;
}

std::string fast_leak_summary() {
  return mem_gen_get_module_filename() +
         " memory leak summary\n"
         "===============================\n"
         "Leaked bytes:      " +
         in_field(mem_get_global_current().bytes) +
         "\nPeak bytes on heap:" + in_field(mem_get_global_peak().bytes) +
         "\n===============================\n\n";
}

void write_summary(MEM_OUTPUT_FILE& file, const std::string& text) {
  if (file.is_open()) file.write(text);
  file.close();
  file.say_trouble();
}

}  // namespace

void mem_write_full_leak_report() {
  mem_write_report_file(
      is_in_vx_mode() ? MEM_OUTPUT_PATH{vx_leak_file} : mem_report_path("mem_tbb_leak_warning."),
      write_leaks);
}

// Processes that end together append one write each, so that their summaries never mix; the one
// that creates the file puts the hint before its own.
void mem_write_fast_leak_report() try {
  const MEM_OUTPUT_PATH path{is_in_vx_mode() ? vx_leak_file : fast_leak_file};
  const std::string text = fast_leak_summary();
  MEM_OUTPUT_FILE created(path, MEM_OUTPUT_FILE::OPEN::NEW);
  if (created.is_open()) return write_summary(created, first_hint + text);
  MEM_OUTPUT_FILE shared(path, MEM_OUTPUT_FILE::OPEN::OLD);
  write_summary(shared, text);
} catch (const std::bad_alloc&) {
  mem_say_on_standard_error("MEM: the memory leak summary can't be written: out of memory");
}
