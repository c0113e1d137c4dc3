#include "mem/allocator/allocation_log.h"

#include <cstdio>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"

namespace {

constinit std::FILE* mem_allocations_file = nullptr;
constinit bool print_hooks_installed = false;

// Cleared while this thread prints a line, so that what the printing allocates is not printed.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool print_allocations = true;

template <class NUMBER>
void print_line(const char* format, const void* ptr, NUMBER size) {
  print_allocations = false;
  if (mem_allocations_file != nullptr) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::fprintf(mem_allocations_file, format, ptr, size);
#pragma GCC diagnostic pop
    std::fflush(mem_allocations_file);
  }
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

void open_log() {
  if (mem_allocations_file != nullptr) return;
  mem_allocations_file = std::fopen("mem_allocations.log", "w");
  if (mem_allocations_file == nullptr)
    mem_msg_vdebug("unable to create mem_allocations.log: allocations are not printed");
}

}  // namespace

void mem_set_print_allocations_callback_enabled(bool on) {
  if (on) open_log();
  // The allocator would take the same hooks twice, and every line would be printed twice.
  if (std::exchange(print_hooks_installed, on) == on) return;
  if (on) {
    ptrfunc_AddNewHook(mem_tcmalloc_print_allocations_new_hook);
    ptrfunc_AddDeleteHook(mem_tcmalloc_print_allocations_delete_hook);
  } else {
    ptrfunc_RemoveDeleteHook(mem_tcmalloc_print_allocations_delete_hook);
    ptrfunc_RemoveNewHook(mem_tcmalloc_print_allocations_new_hook);
  }
}

void mem_close_allocation_log() {
  if (mem_allocations_file == nullptr) return;
  mem_set_print_allocations_callback_enabled(false);
  std::fclose(mem_allocations_file);
  mem_allocations_file = nullptr;
}
