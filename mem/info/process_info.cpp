// Queries about the memory of a process.
#include <unistd.h>

#include <atomic>

#include "include/tuk_mem.h"
#include "mem/info/proc_files.h"
#include "platform/thr_runtime.h"

namespace {

constexpr unsigned long long bytes_per_kb = 1024;

constinit std::atomic<std::uint64_t> page_size = 0;  // 0: not asked yet

unsigned long own_pid() { return static_cast<unsigned long>(thr_getpid()); }

template <class RECORD>
std::uint64_t query(const char* caller, unsigned long pid, unsigned long long RECORD::*field) {
  RECORD record;
  return record.read(caller, pid) == 0 ? record.*field : 0;
}

}  // namespace

std::uint64_t mem_getpagesize() {
  if (page_size == 0) page_size = static_cast<std::uint64_t>(getpagesize());
  return page_size;
}

std::uint64_t mem_info_get_process_page_fault_count() {
  MEM_LINUX_PROC_PID_STAT_T stat;
  return stat.read(__func__) == 0 ? stat.minor_faults + stat.major_faults : 0;
}

std::uint64_t mem_info_get_process_current_virtual_used(unsigned long pid) {
  return query(__func__, pid, &MEM_LINUX_PROC_PID_STAT_T::virtual_size);
}

std::uint64_t mem_info_get_process_current_virtual_used() {
  return mem_info_get_process_current_virtual_used(own_pid());
}

std::uint64_t mem_info_get_process_current_working_set_size(unsigned long pid) {
  return query(__func__, pid, &MEM_LINUX_PROC_PID_STATM_T::resident) *
         static_cast<std::uint64_t>(static_cast<int>(mem_getpagesize()));
}

std::uint64_t mem_info_get_process_current_working_set_size() {
  return mem_info_get_process_current_working_set_size(own_pid());
}

std::uint64_t mem_info_get_process_peak_working_set_size(unsigned long pid) {
  return query(__func__, pid, &MEM_LINUX_PROC_PID_STATUS_T::vm_hwm) * bytes_per_kb;
}

std::uint64_t mem_info_get_process_peak_working_set_size() {
  return mem_info_get_process_peak_working_set_size(own_pid());
}

std::uint64_t mem_info_get_process_peak_virtual_used_from_os(unsigned long pid) {
  return query(__func__, pid, &MEM_LINUX_PROC_PID_STATUS_T::vm_peak) * bytes_per_kb;
}

std::uint64_t mem_info_get_process_peak_virtual_used_from_os() {
  return mem_info_get_process_peak_virtual_used_from_os(own_pid());
}

std::uint64_t mem_info_get_process_peak_virtual_used(unsigned long pid) {
  return mem_info_get_process_peak_virtual_used_from_os(pid);
}

std::uint64_t mem_info_get_process_peak_virtual_used() {
  return mem_info_get_process_peak_virtual_used(own_pid());
}
