// What a set of reports is of: the process, how it was profiled, what it had loaded.
#include <unistd.h>

#include <sys/utsname.h>

#include <chrono>
#include <cstdio>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/lifecycle.h"
#include "mem/host/settings_in_force.h"
#include "mem/oom/spare_memory.h"
#include "mem/output/run_start.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"
#include "mem/report/run_modules.h"
#include "mem/state/totals.h"
#include "mem/symbolizer/loaded_module.h"
#include "platform/thr_runtime.h"

namespace {

using std::chrono::system_clock;

// Its own time zone is none of a host's.
void write_time(MEM_REPORT_TEXT& out, system_clock::time_point time) {
  using namespace std::chrono;
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(floor<seconds>(time - day));
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  out << text;
}

void write_arguments(MEM_REPORT_TEXT& out, std::string_view arguments) {
  while (!arguments.empty()) {
    const std::size_t end = std::min(arguments.find('\0'), arguments.size());
    out << "argument\t";
    mem_write_run_value(out, arguments.substr(0, end));
    out << '\n';
    arguments.remove_prefix(std::min(end + 1, arguments.size()));
  }
}

void write_host(MEM_REPORT_TEXT& out) {
  utsname name{};
  mem_write_run_value(out, uname(&name) == 0 ? name.nodename : "");
}

void write_allocator(MEM_REPORT_TEXT& out) {
  MEM_LOADED_MODULE module;
  if (!mem_allocator_is_hooked())
    out << "none";
  else if (module.find(reinterpret_cast<void const*>(ptrfunc_AddNewHook)) && *module.name != '\0')
    mem_write_run_value(out, module.name);
  else
    out << "in the executable";
}

void write_settings(MEM_REPORT_TEXT& out) {
  constexpr char const* sources[] = {"", "default", "environment", "settings_file"};
  for (const MEM_SETTINGS_ROW& row : mem_settings) {
    const MEM_SETTING_IN_FORCE setting = mem_setting_in_force(row);
    if (setting.source == MEM_SETTING_IN_FORCE::NOT_READ) continue;
    out << "setting\t" << setting.name << ' ' << sources[setting.source] << ' ';
    mem_write_run_value(out, setting.value);
    out << '\n';
  }
}

}  // namespace

void mem_write_run_value(MEM_REPORT_TEXT& out, std::string_view text) {
  for (const char c : text) switch (c) {
      case '\t':
        out << "\\t";
        break;
      case '\n':
        out << "\\n";
        break;
      case '\\':
        out << "\\\\";
        break;
      default:
        out << c;
    }
}

// With which status is not to be known: the loader ends libraries before it calls what they have
// registered to be told.
char const* mem_how_the_run_ends() {
  if (mem_out_of_memory_already_reported) return "out of memory";
  return mem_process_is_ending ? "exit" : "shutdown by the host";
}

void mem_write_run_file(MEM_TEXT_SINK& sink, MEM_TRACKING_GRANULARITY granularity,
                        char const* ended) {
  const MEM_RUN_START& start = mem_run_start();
  const auto run_time = std::chrono::steady_clock::now() - start.steady_time;
  MEM_REPORT_TEXT out(sink);
  out << "executable\t";
  mem_write_run_value(out, start.executable);
  out << '\n';
  write_arguments(out, start.arguments);
  out << "pid\t" << thr_getpid() << "\nparent\t" << start.parent << "\nhost\t";
  write_host(out);
  out << "\ndirectory\t";
  mem_write_run_value(out, start.directory);
  out << "\nstart\t";
  write_time(out, start.time);
  out << "\nend\t";
  write_time(out, system_clock::now());
  constexpr int milliseconds = 3;
  out << "\nseconds\t";
  out.fixed(std::chrono::duration<double>(run_time).count(), milliseconds);
  out << "\nended\t" << (ended == nullptr ? "not yet" : ended) << "\nversion\t"
      << TUK_MEM_VERSION_STRING << "\nallocator\t";
  write_allocator(out);
  out << "\ngranularity\t" << static_cast<std::uint32_t>(granularity) << "\npeak_resident_bytes\t"
      << mem_info_get_process_peak_working_set_size() << "\nevents_not_accounted\t"
      << mem_abandoned_events.load() << '\n';
  write_settings(out);
  mem_write_run_modules(out);
  out.flush();
}
