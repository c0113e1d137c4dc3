#include "mem/allocator/allocation_log.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>
#include <thread>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/allocator/hook_switch.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/host_thread.h"
#include "mem/output/output_file.h"
#include "mem/state/thread_flags.h"

namespace {

constinit std::atomic<MEM_OUTPUT_FILE*> mem_allocations_file = nullptr;
constinit std::atomic<int> threads_printing = 0;
constinit MEM_HOOK_SWITCH print_hooks;

// Cleared while this thread prints a line, so that what the printing allocates is not printed.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool print_allocations = true;

// The file is not closed under a thread that is counted here.
template <class NUMBER>
[[gnu::cold]] void print_line(const char* format, const void* ptr, NUMBER size) {
  const MEM_ERRNO_KEPT host_errno;
  const MEM_INSIDE_TRACKER inside;
  print_allocations = false;
  ++threads_printing;
  if (MEM_OUTPUT_FILE* const file = mem_allocations_file) {
    char line[96];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(line, sizeof line, format, ptr, size);
#pragma GCC diagnostic pop
    if (!file->write({line, static_cast<std::size_t>(length)})) file->say_trouble();
  }
  --threads_printing;
  print_allocations = true;
}

void mem_tcmalloc_print_allocations_new_hook(const void* ptr, std::size_t size) {
  if (mem_allocator_owns(ptr) && print_allocations)
    print_line("ptr=%p, size=%llu, type=alloc\n", ptr, static_cast<unsigned long long>(size));
}

void mem_tcmalloc_print_allocations_delete_hook(const void* ptr) {
  if (mem_allocator_owns(ptr) && print_allocations)
    print_line("ptr=%p, size=%lli, type=free\n", ptr,
               static_cast<long long>(mem_allocated_size(ptr)));
}

using FILE_MEMORY = MEM_BOOKKEEPING_ALLOCATOR<MEM_OUTPUT_FILE>;

void close_log(MEM_OUTPUT_FILE* file) {
  file->~MEM_OUTPUT_FILE();
  FILE_MEMORY().deallocate(file, 1);
}

// Said once, however often the log is switched on.
void say_that_it_stays_shut(MEM_OUTPUT_FILE& file) {
  static constinit std::atomic<bool> was_said = false;
  if (!was_said.exchange(true)) file.say_trouble();
}

// Of two threads that open it at once, one closes its own again.
void open_log() {
  if (mem_allocations_file != nullptr) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  auto* const file = new (FILE_MEMORY().allocate(1)) MEM_OUTPUT_FILE(
      {"mem_allocations.log"}, MEM_OUTPUT_FILE::OPEN::EMPTIED, MEM_OUTPUT_FILE::STAY::LONG);
  MEM_OUTPUT_FILE* none = nullptr;
  if (file->is_open() && mem_allocations_file.compare_exchange_strong(none, file)) return;
  if (!file->is_open()) say_that_it_stays_shut(*file);
  close_log(file);
}

void change_print_hooks(bool on) {
  if (on) {
    ptrfunc_AddNewHook(mem_tcmalloc_print_allocations_new_hook);
    ptrfunc_AddDeleteHook(mem_tcmalloc_print_allocations_delete_hook);
  } else {
    ptrfunc_RemoveDeleteHook(mem_tcmalloc_print_allocations_delete_hook);
    ptrfunc_RemoveNewHook(mem_tcmalloc_print_allocations_new_hook);
  }
}

// False when some thread does not get on: it may be stopped, or the file's reader may be.
bool wait_for_printing_threads() {
  constexpr std::chrono::milliseconds step(1);
  constexpr int most_steps = 1000;
  for (int waited = 0; threads_printing > 0; ++waited) {
    if (waited == most_steps) return false;
    std::this_thread::sleep_for(step);
  }
  return true;
}

}  // namespace

void mem_set_print_allocations_callback_enabled(bool on) {
  if (on) open_log();
  print_hooks.turn(on, change_print_hooks);
}

// Every line has been handed over: a file that can't be closed now lacks nothing.
void mem_close_allocation_log() {
  if (mem_allocations_file == nullptr) return;
  mem_set_print_allocations_callback_enabled(false);
  MEM_OUTPUT_FILE* const file = mem_allocations_file.exchange(nullptr);
  if (file != nullptr && wait_for_printing_threads()) close_log(file);
}
