#include "platform/thr_thread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

namespace {

void* call_function(THR_FUNCTION function, void* argument) { return function(argument); }

std::atomic<THR_WRAPPER> outermost_wrapper{call_function};

struct START {
  THR_FUNCTION function;
  void* argument;
};

void* run_wrapped(void* start) {
  const std::unique_ptr<START> taken(static_cast<START*>(start));
  return outermost_wrapper.load()(taken->function, taken->argument);
}

}  // namespace

void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* previous) {
  *previous = outermost_wrapper.exchange(wrapper);
}

int thr_thread_create(pthread_t* thread, THR_FUNCTION function, void* argument) {
  std::unique_ptr<START> start(new (std::nothrow) START{function, argument});
  if (start == nullptr) return ENOMEM;
  const int error = pthread_create(thread, nullptr, run_wrapped, start.get());
  if (error == 0) static_cast<void>(start.release());
  return error;
}

int thr_thread_join(pthread_t thread, void** result) { return pthread_join(thread, result); }
