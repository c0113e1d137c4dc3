// What happens when memory runs out: one report, then the end of the process.
#include "mem/oom/out_of_memory.h"

#include <cstdio>
#include <cstdlib>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/critical_section.h"
#include "mem/oom/spare_memory.h"
#include "platform/thr_runtime.h"

constinit std::atomic<void (*)()> mem_out_of_memory_func_ptr = nullptr;

namespace {

constexpr std::uint64_t bytes_per_megabyte = 1'000'000;

void print_report() {
  std::fflush(stdout);
  std::fflush(stderr);
  std::fprintf(stderr, "\nOut of memory (%d megabytes used)\n",
               static_cast<int>(mem_info_get_process_peak_virtual_used() / bytes_per_megabyte));
  std::fflush(stderr);
}

void report_once() {
  const MEM_CRITICAL_SECTION_GUARD one_at_a_time;
  if (mem_out_of_memory_already_reported.exchange(true)) return;
  mem_release_spare_blocks();
  if (const auto hosts_handler = mem_out_of_memory_func_ptr.load())
    hosts_handler();
  else
    print_report();
}

}  // namespace

void mem_out_of_memory() {
  try {
    report_once();
  } catch (...) {  // the host's handler: memory is gone all the same
    std::exit(1);
  }
  std::exit(1);
}

int mem_microsoft_new_handler() { mem_out_of_memory(); }

void mem_set_out_of_memory_handler(void (*handler)()) {
  mem_out_of_memory_func_ptr = handler;
  mem_install_out_of_memory_handler();
}

void mem_install_out_of_memory_handler() {
  mem_tc_set_new_mode(1);
  tbbk_set_new_mode(1);
  thr_set_new_handler(mem_out_of_memory);
  if (fileno(stderr) >= 0) std::fflush(stderr);
  // Once now, so that its code and files have been used before memory runs out.
  static_cast<void>(mem_info_get_process_peak_virtual_used());
}

int mem_tc_set_new_mode(int mode) {
  return ptrfunc_tc_set_new_mode == nullptr ? -1 : ptrfunc_tc_set_new_mode(mode);
}
