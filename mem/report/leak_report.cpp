// The leak reports.
#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>

#include "mem/base/standard_error.h"
#include "mem/records/module_map.h"
#include "mem/report/report_set.h"

namespace {

constexpr char const* vx_leak_file = "korvane_vx_leak_warning.txt";
constexpr char const* fast_leak_file = "mem_tbb_fast_leak_warning.log";
constexpr char const* first_hint = "For more detail, use INI mem_check_leaks=on\n\n";

// The catch-all can stand below zero: it lost blocks from before tracking.
void write_leaking_site(MEM_REPORT_TEXT& out, const MEM_SITE_ROW& row) {
  const MEM_ADDRESS_INFO& info = row.info();
  out << (row.is_catch_all() ? mem_other_module : info.module_name_buffer) << " leaked "
      << row.counters.current_bytes << " bytes in "
      << static_cast<std::int32_t>(row.counters.current_blocks) << " object(s) allocated at "
      << info.file_name_buffer << ":" << info.line << " " << info.function_name_buffer << '\n';
}

// Right-aligned in a field of 12.
MEM_BOOKKEEPING_STRING in_field(std::int64_t number) {
  constexpr std::size_t width = 12;
  char digits[24];
  const std::string_view text(
      digits,
      static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits));
  MEM_BOOKKEEPING_STRING field(width - std::min(width, text.size()), ' ');
  return field.append(text);
}

MEM_BOOKKEEPING_STRING fast_leak_summary(MEM_REPORT_FIGURES& figures,
                                         MEM_PROCESS_NAME process_name) {
  return process_name() +
         " memory leak summary\n"
         "===============================\n"
         "Leaked bytes:      " +
         in_field(figures.global_current().bytes) +
         "\nPeak bytes on heap:" + in_field(figures.global_peak().bytes) +
         "\n===============================\n\n";
}

void write_summary(MEM_OUTPUT_FILE& file, std::string_view text) {
  if (file.is_open()) file.write(text);
  file.close();
  file.say_trouble();
}

// Processes that end together append one write each, so that their summaries never mix; the one
// that creates the file puts the hint before its own.
void append_to_shared_file(char const* name, const MEM_BOOKKEEPING_STRING& text) {
  const MEM_OUTPUT_PATH path{name};
  MEM_OUTPUT_FILE created(path, MEM_OUTPUT_FILE::OPEN::NEW);
  if (created.is_open()) return write_summary(created, first_hint + text);
  MEM_OUTPUT_FILE shared(path, MEM_OUTPUT_FILE::OPEN::OLD);
  write_summary(shared, text);
}

void write_fast_leak_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures,
                            MEM_PROCESS_NAME process_name) {
  char const* const name = figures.wanted().in_vx_mode ? vx_leak_file : fast_leak_file;
  if (place == nullptr)
    append_to_shared_file(name, fast_leak_summary(figures, process_name));
  else
    mem_write_report_file(place, mem_report_path(place, {name}), [&](MEM_TEXT_SINK& sink) {
      sink.write(first_hint + fast_leak_summary(figures, process_name));
    });
}

}  // namespace

void mem_write_leaks(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites) {
  MEM_REPORT_TEXT out(sink);
  out << "MEM: TBB Leak Checking Summary.\n\n";
  std::int64_t total = 0;
  for (const MEM_SITE_ROW& row : sites.rows()) {
    if (row.counters.current_blocks == 0) continue;
    write_leaking_site(out, row);
    total += row.counters.current_bytes;
  }
  out << "\nTotal leaked bytes: " << total << '\n';
  out.flush();
}

void mem_write_leak_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures,
                           MEM_PROCESS_NAME process_name) try {
  if (figures.wanted().leaks)
    mem_write_report_file(
        place,
        figures.wanted().in_vx_mode ? mem_report_path(place, {vx_leak_file})
                                    : mem_report_path(place, "mem_tbb_leak_warning."),
        [&](MEM_TEXT_SINK& sink) { mem_write_leaks(sink, figures.sites_by_peak()); });
  else if (figures.wanted().fast_leaks)
    write_fast_leak_report(place, figures, process_name);
} catch (const std::bad_alloc&) {
  mem_say_on_standard_error("MEM: the memory leak summary can't be written: out of memory");
}
