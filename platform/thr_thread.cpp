#include "platform/thr_thread.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <new>

namespace {

void* call_function(THR_FUNCTION function, void* argument) { return function(argument); }

constinit std::atomic<THR_WRAPPER> outermost_wrapper{call_function};

struct START {
  THR_FUNCTION function;
  void* argument;
};

// What a thread is to run goes over in a page of its own: a block of the heap would be one more in
// the figures of whoever starts the thread.
START* new_start(THR_FUNCTION function, void* argument) {
  void* const page =
      mmap(nullptr, sizeof(START), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return page == MAP_FAILED ? nullptr : new (page) START{function, argument};
}

void free_start(START* start) { munmap(start, sizeof *start); }

void* run_wrapped(void* handed_over) {
  auto* const start = static_cast<START*>(handed_over);
  const START taken = *start;
  free_start(start);
  return outermost_wrapper.load()(taken.function, taken.argument);
}

}  // namespace

void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* previous) {
  THR_WRAPPER before = outermost_wrapper;
  do {
    *previous = before;
  } while (!outermost_wrapper.compare_exchange_weak(before, wrapper));
}

int thr_thread_create(pthread_t* thread, THR_FUNCTION function, void* argument) {
  START* const start = new_start(function, argument);
  if (start == nullptr) return ENOMEM;
  const int error = pthread_create(thread, nullptr, run_wrapped, start);
  if (error != 0) free_start(start);
  return error;
}

int thr_thread_join(pthread_t thread, void** result) { return pthread_join(thread, result); }
