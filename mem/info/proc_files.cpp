#include "mem/info/proc_files.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "include/tuk_mem.h"

namespace {

struct CLOSE_FILE {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FILE_OWNER = std::unique_ptr<std::FILE, CLOSE_FILE>;

void report_unopened(const char* caller, const char* path) {
  mem_msg_vdebug("%s: error opening %s", caller, path);
}

std::string path_of(unsigned long pid, const char* file) {
  std::ostringstream path;
  path << "/proc/" << pid << file;
  return path.str();
}

bool opened(std::ifstream& file, const char* caller, const char* path) {
  file.open(path);
  if (!file) report_unopened(caller, path);
  return static_cast<bool>(file);
}

// One line of a "Name: value kB" file and the field it fills.
template <class RECORD>
struct LINE_ROW {
  const char* pattern;
  unsigned long long RECORD::*field;
};

// Stores the number of the first row whose pattern converts one. The text after the number is not
// compared ("Threads:" has no unit), since by then the number has been converted.
template <class RECORD, std::size_t ROWS>
bool take_line(const std::string& line, const LINE_ROW<RECORD> (&rows)[ROWS], RECORD& record) {
  for (const LINE_ROW<RECORD>& row : rows) {
    unsigned long long value = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (std::sscanf(line.c_str(), row.pattern, &value) != 1) continue;
#pragma GCC diagnostic pop
    record.*row.field = value;
    return true;
  }
  return false;
}

constexpr LINE_ROW<MEM_LINUX_PROC_PID_STATUS_T> status_lines[] = {
    {"VmPeak: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_peak},
    {"VmSize: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_size},
    {"VmLck: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_lck},
    {"VmHWM: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_hwm},
    {"VmRSS: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_rss},
    {"VmData: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_data},
    {"VmStk: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_stk},
    {"VmExe: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_exe},
    {"VmLib: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_lib},
    {"VmSwap: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::vm_swap},
    {"Threads: %llu kB", &MEM_LINUX_PROC_PID_STATUS_T::threads},
};

constexpr LINE_ROW<MEM_LINUX_PROC_MEMINFO_T> meminfo_lines[] = {
    {"MemTotal: %llu kB", &MEM_LINUX_PROC_MEMINFO_T::mem_total},
    {"MemFree: %llu kB", &MEM_LINUX_PROC_MEMINFO_T::mem_free},
    {"SwapTotal: %llu kB", &MEM_LINUX_PROC_MEMINFO_T::swap_total},
    {"SwapFree: %llu kB", &MEM_LINUX_PROC_MEMINFO_T::swap_free},
};

}  // namespace

std::FILE* MEM_LINUX_PROC_T::open(const char* caller, const char* path) {
  std::FILE* file = std::fopen(path, "r");
  if (file == nullptr) report_unopened(caller, path);
  return file;
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller) { return read(caller, "/proc/self/stat"); }

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/stat").c_str());
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, const char* path) {
  constexpr int expected = 3;
  const FILE_OWNER file(open(caller, path));
  if (file == nullptr) return -1;
  std::rewind(file.get());
  const int found = std::fscanf(
      file.get(),
      "%*s %*s %*s %*s %*s %*s %*s %*s %*s %llu %*s %llu %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
      "%llu",
      &minor_faults, &major_faults, &virtual_size);
  if (found == expected) return 0;
  mem_msg_vdebug("%s: unexpected number of values found in /proc/self/stat.  Found %d, expected %d",
                 caller, found, expected);
  return -1;
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller) {
  return read(caller, "/proc/self/statm");
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/statm").c_str());
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller, const char* path) {
  constexpr int expected = 5;
  const FILE_OWNER file(open(caller, path));
  if (file == nullptr) return -1;
  std::rewind(file.get());
  const int found = std::fscanf(file.get(), "%llu %llu %llu %llu %*s %llu", &size, &resident,
                                &shared, &text, &data);
  if (found == expected) return 0;
  mem_msg_vdebug(
      "%s: unexpected number of values found in /proc/self/statm.  Found %d, expected %d", caller,
      found, expected);
  return -1;
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller) {
  return read(caller, "/proc/self/status");
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/status").c_str());
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller, const char* path) {
  std::ifstream file;
  if (!opened(file, caller, path)) return -1;
  for (std::string line; std::getline(file, line);) take_line(line, status_lines, *this);
  return 0;
}

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller) { return read(caller, "/proc/meminfo"); }

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller, const char* path) {
  constexpr int expected = 4;
  std::ifstream file;
  if (!opened(file, caller, path)) return -1;
  int found = 0;
  for (std::string line; found < expected && std::getline(file, line);)
    if (take_line(line, meminfo_lines, *this)) ++found;
  if (found == expected) return 0;
  mem_msg_vdebug("%s: error: found %d items, expected %d", caller, found, expected);
  return -1;
}
