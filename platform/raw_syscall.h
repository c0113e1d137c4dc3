// System calls without the C library: no cancellation point, no errno, no thread-local storage.
// For code that runs in a hook, and for processes that borrow the host's memory.
#pragma once

#include <sys/syscall.h>

/// Marks a function that runs without a thread of the C library's own: neither thread-local
/// storage nor a sanitizer's state is there for it.
#ifdef __clang__
#define THR_BARE __attribute__((no_sanitize("address", "thread", "undefined")))
#else
#define THR_BARE __attribute__((no_sanitize("address", "thread", "undefined"), no_stack_protector))
#endif

/// The kernel's answer: for an error, its negative number.
long thr_kernel(long number, long a, long b, long c, long d, long e);

/// The same for arguments of any kind.
template <class... ARGUMENTS>
THR_BARE inline long thr_raw_syscall(long number, ARGUMENTS... arguments) {
  const long words[5] = {((long)arguments)...};  // NOLINT: pointers are words here
  return thr_kernel(number, words[0], words[1], words[2], words[3], words[4]);
}
