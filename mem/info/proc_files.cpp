#include "mem/info/proc_files.h"

#include <array>
#include <cstdarg>

#include "include/tuk_mem.h"
#include "mem/base/host_thread.h"
#include "mem/state/thread_flags.h"

namespace {

// A stream of the C library and its buffer. What the library takes for it is no block of the
// host's. Its user holds cancellation back, which would leave it open.
class PROC_STREAM {
 public:
  explicit PROC_STREAM(std::FILE* file) : m_file(file) {
    if (file != nullptr) std::setvbuf(file, m_buffer.data(), _IOFBF, m_buffer.size());
  }
  PROC_STREAM(const PROC_STREAM&) = delete;
  PROC_STREAM& operator=(const PROC_STREAM&) = delete;
  ~PROC_STREAM() {
    const MEM_THREAD_TRACKING_BLOCKED blocked;
    if (m_file != nullptr) std::fclose(m_file);
  }

  std::FILE* get() const { return m_file; }

 private:
  std::FILE* m_file;
  std::array<char, 4096> m_buffer;
};

// As mem_msg_vdebug, but no query throws: an exception of the host's callback ends here.
[[gnu::format(printf, 1, 2)]] void report(const char* format, ...) {
  va_list args;
  va_start(args, format);
  try {
    mem_msg_local_vdebug("MEM", format, args);
  } catch (...) {  // what failed to be read is answered all the same
  }
  va_end(args);
}

using PATH = std::array<char, 64>;

// The C library's formats and streams all through: those of C++ follow the host's global locale.
PATH path_of(unsigned long pid, const char* file) {
  PATH path;
  std::snprintf(path.data(), path.size(), "/proc/%lu%s", pid, file);
  return path;
}

std::FILE* open_untracked(const char* path) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  return std::fopen(path, "re");
}

using LINE = std::array<char, 256>;

// The next line without its end, cut where it is longer than any that is looked for.
bool next_line(std::FILE* file, LINE& line) {
  std::size_t length = 0;
  int c = 0;
  while ((c = getc_unlocked(file)) != EOF && c != '\n')
    if (length + 1 < line.size()) line[length++] = static_cast<char>(c);
  line[length] = '\0';
  return length != 0 || c != EOF;
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
bool take_line(const LINE& line, const LINE_ROW<RECORD> (&rows)[ROWS], RECORD& record) {
  for (const LINE_ROW<RECORD>& row : rows) {
    unsigned long long value = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (std::sscanf(line.data(), row.pattern, &value) != 1) continue;
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
  std::FILE* file = open_untracked(path);
  if (file == nullptr) report("%s: error opening %s", caller, path);
  return file;
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller) { return read(caller, "/proc/self/stat"); }

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/stat").data());
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, const char* path) {
  constexpr int expected = 3;
  const MEM_CANCELLATION_HELD held;
  const PROC_STREAM file(open(caller, path));
  if (file.get() == nullptr) return -1;
  std::rewind(file.get());
  const int found = std::fscanf(
      file.get(),
      "%*s %*s %*s %*s %*s %*s %*s %*s %*s %llu %*s %llu %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s "
      "%llu",
      &minor_faults, &major_faults, &virtual_size);
  if (found == expected) return 0;
  report("%s: unexpected number of values found in /proc/self/stat.  Found %d, expected %d", caller,
         found, expected);
  return -1;
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller) {
  return read(caller, "/proc/self/statm");
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/statm").data());
}

int MEM_LINUX_PROC_PID_STATM_T::read(const char* caller, const char* path) {
  constexpr int expected = 5;
  const MEM_CANCELLATION_HELD held;
  const PROC_STREAM file(open(caller, path));
  if (file.get() == nullptr) return -1;
  std::rewind(file.get());
  const int found = std::fscanf(file.get(), "%llu %llu %llu %llu %*s %llu", &size, &resident,
                                &shared, &text, &data);
  if (found == expected) return 0;
  report("%s: unexpected number of values found in /proc/self/statm.  Found %d, expected %d",
         caller, found, expected);
  return -1;
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller) {
  return read(caller, "/proc/self/status");
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/status").data());
}

int MEM_LINUX_PROC_PID_STATUS_T::read(const char* caller, const char* path) {
  const MEM_CANCELLATION_HELD held;
  const PROC_STREAM file(open(caller, path));
  if (file.get() == nullptr) return -1;
  for (LINE line; next_line(file.get(), line);) take_line(line, status_lines, *this);
  return 0;
}

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller) { return read(caller, "/proc/meminfo"); }

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller, const char* path) {
  constexpr int expected = 4;
  const MEM_CANCELLATION_HELD held;
  const PROC_STREAM file(open(caller, path));
  if (file.get() == nullptr) return -1;
  int found = 0;
  for (LINE line; found < expected && next_line(file.get(), line);)
    if (take_line(line, meminfo_lines, *this)) ++found;
  if (found == expected) return 0;
  report("%s: error: found %d items, expected %d", caller, found, expected);
  return -1;
}
