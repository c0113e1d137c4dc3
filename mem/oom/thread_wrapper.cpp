#include "mem/oom/thread_wrapper.h"

#include "include/tuk_mem.h"
#include "mem/oom/out_of_memory.h"

constinit THR_WRAPPER mem_next_thread_wrapper = nullptr;

void* mem_thread_wrapper(THR_FUNCTION function, void* argument) {
  mem_allocate_spare_memory();
  mem_set_out_of_memory_handler(mem_out_of_memory_func_ptr);
  void* result = mem_next_thread_wrapper(function, argument);
  // The process-wide block goes too, deliberately: the next thread start brings it back.
  mem_free_spare_memory();
  return result;
}
