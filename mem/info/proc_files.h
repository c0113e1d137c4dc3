// Readers of the kernel's memory files. Relies on mem/base.
// Every read opens its file afresh and keeps only the fields listed. The readers answer 0 on
// success and -1 on failure, which they report on the debug channel under the caller's name; they
// never throw, and take nothing from the heap. Any thread; a thread that reads is not cancelled
// meanwhile.
#pragma once

class MEM_LINUX_PROC_T {
 protected:
  /// The descriptor of the file opened for reading, closed on exec; negative after a message.
  static int open(const char* caller, const char* path);
};

/// "/proc/<pid>/stat".
struct MEM_LINUX_PROC_PID_STAT_T : MEM_LINUX_PROC_T {
  unsigned long long minor_faults = 0;
  unsigned long long major_faults = 0;
  unsigned long long virtual_size = 0;  ///< bytes

  int read(const char* caller);
  int read(const char* caller, unsigned long pid);
  int read(const char* caller, const char* path);
};

/// "/proc/<pid>/statm"; all in pages.
struct MEM_LINUX_PROC_PID_STATM_T : MEM_LINUX_PROC_T {
  unsigned long long size = 0;
  unsigned long long resident = 0;
  unsigned long long shared = 0;
  unsigned long long text = 0;
  unsigned long long data = 0;

  int read(const char* caller);
  int read(const char* caller, unsigned long pid);
  int read(const char* caller, const char* path);
};

/// "/proc/<pid>/status"; all in kB but threads, a count. A line that the file lacks leaves its
/// field at 0.
struct MEM_LINUX_PROC_PID_STATUS_T : MEM_LINUX_PROC_T {
  unsigned long long vm_peak = 0;
  unsigned long long vm_size = 0;
  unsigned long long vm_lck = 0;
  unsigned long long vm_hwm = 0;
  unsigned long long vm_rss = 0;
  unsigned long long vm_data = 0;
  unsigned long long vm_stk = 0;
  unsigned long long vm_exe = 0;
  unsigned long long vm_lib = 0;
  unsigned long long vm_swap = 0;
  unsigned long long threads = 0;

  int read(const char* caller);
  int read(const char* caller, unsigned long pid);
  int read(const char* caller, const char* path);
};

/// "/proc/meminfo"; all in kB.
struct MEM_LINUX_PROC_MEMINFO_T : MEM_LINUX_PROC_T {
  unsigned long long mem_total = 0;
  unsigned long long mem_free = 0;
  unsigned long long swap_total = 0;
  unsigned long long swap_free = 0;

  int read(const char* caller);
  int read(const char* caller, const char* path);
};
