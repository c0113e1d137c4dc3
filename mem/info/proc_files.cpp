#include "mem/info/proc_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>

#include "include/tuk_mem.h"
#include "mem/base/host_thread.h"

namespace {

// A file read through a buffer of its own: memory may just have run out. Its user holds
// cancellation back, which would leave it open.
class PROC_FILE {
 public:
  explicit PROC_FILE(int descriptor) : m_descriptor(descriptor) {}
  PROC_FILE(const PROC_FILE&) = delete;
  PROC_FILE& operator=(const PROC_FILE&) = delete;
  ~PROC_FILE() {
    if (is_open()) close(m_descriptor);
  }

  bool is_open() const { return m_descriptor >= 0; }

  // The next byte, or EOF.
  int get() {
    if (m_next == m_end && !fill()) return EOF;
    return static_cast<unsigned char>(m_buffer[m_next++]);
  }

  // What is left of it, cut to the buffer.
  char const* rest() {
    std::size_t length = 0;
    for (int c = get(); c != EOF && length + 1 < m_text.size(); c = get())
      m_text[length++] = static_cast<char>(c);
    m_text[length] = '\0';
    return m_text.data();
  }

 private:
  bool fill() {
    const ssize_t count = read(m_descriptor, m_buffer.data(), m_buffer.size());
    m_next = 0;
    m_end = count > 0 ? static_cast<std::size_t>(count) : 0;
    return m_end != 0;
  }

  int m_descriptor;
  std::size_t m_next = 0;
  std::size_t m_end = 0;
  std::array<char, 1024> m_buffer;
  std::array<char, 1024> m_text;
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

// The C library's formats all through: those of C++ follow the host's global locale.
PATH path_of(unsigned long pid, const char* file) {
  PATH path;
  std::snprintf(path.data(), path.size(), "/proc/%lu%s", pid, file);
  return path;
}

using LINE = std::array<char, 256>;

// The next line without its end, cut where it is longer than any that is looked for.
bool next_line(PROC_FILE& file, LINE& line) {
  std::size_t length = 0;
  int c = 0;
  while ((c = file.get()) != EOF && c != '\n')
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

int MEM_LINUX_PROC_T::open(const char* caller, const char* path) {
  const int file = ::open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) report("%s: error opening %s", caller, path);
  return file;
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller) { return read(caller, "/proc/self/stat"); }

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, unsigned long pid) {
  return read(caller, path_of(pid, "/stat").data());
}

int MEM_LINUX_PROC_PID_STAT_T::read(const char* caller, const char* path) {
  constexpr int expected = 3;
  const MEM_CANCELLATION_HELD held;
  PROC_FILE file(open(caller, path));
  if (!file.is_open()) return -1;
  const int found = std::sscanf(
      file.rest(),
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
  PROC_FILE file(open(caller, path));
  if (!file.is_open()) return -1;
  const int found = std::sscanf(file.rest(), "%llu %llu %llu %llu %*s %llu", &size, &resident,
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
  PROC_FILE file(open(caller, path));
  if (!file.is_open()) return -1;
  for (LINE line; next_line(file, line);) take_line(line, status_lines, *this);
  return 0;
}

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller) { return read(caller, "/proc/meminfo"); }

int MEM_LINUX_PROC_MEMINFO_T::read(const char* caller, const char* path) {
  constexpr int expected = 4;
  const MEM_CANCELLATION_HELD held;
  PROC_FILE file(open(caller, path));
  if (!file.is_open()) return -1;
  int found = 0;
  for (LINE line; found < expected && next_line(file, line);)
    if (take_line(line, meminfo_lines, *this)) ++found;
  if (found == expected) return 0;
  report("%s: error: found %d items, expected %d", caller, found, expected);
  return -1;
}
