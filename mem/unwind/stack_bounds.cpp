#include "mem/unwind/stack_bounds.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "mem/modules/readable_memory.h"

// The stack pointer at the program's first instruction, set by the loader.
extern "C" void* __libc_stack_end;  // NOLINT(bugprone-reserved-identifier)

constinit thread_local MEM_OWN_STACK mem_own_stack;

namespace {

// Further away from the end of the thread's stack, another stack is taken to begin: it is asked for
// page by page then, at every walk.
constexpr std::uintptr_t longest_search = std::uintptr_t{64} << 20;

// The C library puts a thread's control block at the end of its stack, whoever allocated that. The
// functions that tell a stack's bounds would allocate and lock.
bool is_main_thread() { return syscall(SYS_gettid) == getpid(); }

std::uintptr_t end_of_own_stack() {
  return reinterpret_cast<std::uintptr_t>(is_main_thread() ? __libc_stack_end
                                                           : __builtin_thread_pointer());
}

// Whether all of the thread's stack from `page` upward may be read; then it is known.
bool grow_down_to(MEM_OWN_STACK& own, std::uintptr_t page, std::uintptr_t end) {
  const std::uintptr_t known = own.low == 0 ? end : own.low;
  for (std::uintptr_t next = page; next < known; next += mem_page_size)
    if (!mem_is_readable(next, 1)) {
      own.hole = std::max(own.hole, next);
      return false;
    }
  own = {page, end, own.hole};
  return true;
}

}  // namespace

[[gnu::cold, gnu::noinline]] std::uintptr_t mem_find_stack_end(std::uintptr_t stack_pointer) {
  MEM_OWN_STACK& own = mem_own_stack;
  const std::uintptr_t end = own.high == 0 ? end_of_own_stack() : own.high;
  const std::uintptr_t page = mem_page_of(stack_pointer);
  if (stack_pointer < end && end - stack_pointer < longest_search && stack_pointer > own.hole &&
      grow_down_to(own, page, end))
    return end;
  return page + mem_page_size;
}

[[gnu::cold, gnu::noinline]] std::uintptr_t mem_extend_stack_end(std::uintptr_t end,
                                                                 std::uintptr_t wanted) {
  if (end == mem_own_stack.high || wanted - end > longest_search) return end;
  while (end < wanted && mem_is_readable(end, 1)) end += mem_page_size;
  return end;
}

bool mem_has_stack_left(std::size_t bytes) {
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  if (is_main_thread() && end_of_own_stack() - here < longest_search) return true;
  return mem_is_readable(here - bytes, bytes);
}
