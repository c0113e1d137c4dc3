// What happens when memory runs out: one line, then the end of the process. Nothing here takes
// memory, or waits for a lock.
#include "mem/oom/out_of_memory.h"

#include <poll.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/base/critical_section.h"
#include "mem/base/host_thread.h"
#include "mem/base/reserve.h"
#include "mem/base/standard_error.h"
#include "mem/oom/spare_memory.h"
#include "mem/state/thread_flags.h"
#include "mem/state/tracker_state.h"
#include "platform/raw_syscall.h"
#include "platform/thr_runtime.h"

constinit std::atomic<void (*)()> mem_out_of_memory_func_ptr = nullptr;

namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t bytes_per_megabyte = 1'000'000;
constexpr milliseconds longest_wait = std::chrono::seconds(10);

// The thread that found the memory gone first: it says so, and ends the process.
constexpr pthread_t nobody = 0;
constinit std::atomic<pthread_t> first_thread = nobody;

bool takes_output(std::FILE* stream) {
  pollfd descriptor = {.fd = fileno(stream), .events = POLLOUT, .revents = 0};
  return poll(&descriptor, 1, 0) == 1 && descriptor.revents == POLLOUT;
}

// Another thread may hold the stream and wait for us, or for memory, and nobody may read what it
// leads to: the exit's own flush comes after the line is said.
void flush_if_possible(std::FILE* stream) {
  if (ftrylockfile(stream) != 0) return;
  if (takes_output(stream)) fflush_unlocked(stream);
  funlockfile(stream);
}

void print_report() {
  const MEM_CANCELLATION_HELD not_cancelled;
  flush_if_possible(stdout);
  flush_if_possible(stderr);
  char line[64];
  const int length = std::snprintf(
      line, sizeof line, "\nOut of memory (%d megabytes used)",
      static_cast<int>(mem_info_get_process_peak_virtual_used() / bytes_per_megabyte));
  mem_say_on_standard_error({line, static_cast<std::size_t>(length)},
                            static_cast<int>(longest_wait.count()));
}

void report() {
  mem_out_of_memory_already_reported = true;
  mem_release_spare_blocks();
  mem_open_reserve();
  if (const auto hosts_handler = mem_out_of_memory_func_ptr.load())
    hosts_handler();
  else
    print_report();
}

[[noreturn]] void report_and_exit() {
  try {
    report();
  } catch (...) {  // the host's handler: memory is gone all the same
    std::exit(1);
  }
  std::exit(1);
}

// No cancellation point.
void sleep_for(milliseconds time) {
  timespec left = {.tv_sec = 0, .tv_nsec = std::chrono::nanoseconds(time).count()};
  while (thr_raw_syscall(SYS_nanosleep, &left, &left) == -EINTR) {  // a signal of the host's
  }
}

// Until the reports are written, and the process has had a little time to end by itself.
void wait_for_reports() {
  constexpr milliseconds step(10);
  constexpr milliseconds rest_of_the_end = std::chrono::seconds(1);
  milliseconds left = longest_wait;
  for (; left > milliseconds(0); left -= step) {
    if (mem_tbb_reports_are_written) left = std::min(left, rest_of_the_end);
    sleep_for(step);
  }
}

// The first thread may be held up by destructors of the host that wait for this one.
[[noreturn]] void leave_it_to_the_first_thread() {
  mem_critical_section.unlock_all();
  wait_for_reports();
  if (!mem_tbb_tracking_ended) mem_shutdown_tbb_tracking();
  _exit(1);
}

// What the library does for itself copes with a failure: the process need not end here, in the
// middle of it.
bool is_inside_the_tracker() {
  return mem_tbb_tracker_thread_local_block_recurse ||
         mem_thread_place != MEM_THREAD_PLACE::OUTSIDE;
}

}  // namespace

void mem_out_of_memory() {
  if (is_inside_the_tracker()) throw std::bad_alloc();
  pthread_t first = nobody;
  if (first_thread.compare_exchange_strong(first, pthread_self())) report_and_exit();
  if (first == pthread_self()) std::exit(1);  // the host's handler, or what runs at exit
  leave_it_to_the_first_thread();
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
