#include "mem/oom/thread_wrapper.h"

#include <atomic>

#include "include/tuk_mem.h"
#include "mem/oom/out_of_memory.h"

constinit THR_WRAPPER mem_next_thread_wrapper = nullptr;

namespace {

constinit std::atomic<bool> wrapper_is_installed = false;

// The process-wide block goes with the thread's: the next thread start brings it back, and until
// then a host has its memory.
struct SPARE_MEMORY {
  SPARE_MEMORY() { mem_allocate_spare_memory(); }
  SPARE_MEMORY(const SPARE_MEMORY&) = delete;
  SPARE_MEMORY& operator=(const SPARE_MEMORY&) = delete;
  ~SPARE_MEMORY() { mem_free_spare_memory(); }
};

}  // namespace

void* mem_thread_wrapper(THR_FUNCTION function, void* argument) {
  const SPARE_MEMORY spare_memory;
  mem_install_out_of_memory_handler();
  return mem_next_thread_wrapper(function, argument);
}

void mem_install_thread_wrapper() {
  if (!wrapper_is_installed.exchange(true))
    thr_thread_set_next_wrapper_func(mem_thread_wrapper, &mem_next_thread_wrapper);
}
