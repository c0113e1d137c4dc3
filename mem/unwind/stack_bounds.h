// How far the stack that a thread stands on may be read.
#pragma once

#include <cstddef>
#include <cstdint>

/// What is known of the calling thread's own stack.
struct MEM_OWN_STACK {
  std::uintptr_t low = 0;   ///< [low, high) may be read, for as long as the thread lives
  std::uintptr_t high = 0;  ///< where the stack ends; 0: nothing is known yet
  std::uintptr_t hole = 0;  ///< can't be read: what lies below is none of this stack
};
[[gnu::tls_model("initial-exec")]] extern constinit thread_local MEM_OWN_STACK mem_own_stack;

/// Where the stack ends that `stack_pointer` lies in, as far as is known: all up to there may be
/// read. Of the thread's own stack this is the true end, remembered. Another one, of a fiber or a
/// signal handler, may be unmapped and mapped again at any time: nothing is remembered, and what is
/// known is the one page.
std::uintptr_t mem_find_stack_end(std::uintptr_t stack_pointer);
inline std::uintptr_t mem_stack_end(std::uintptr_t stack_pointer) {
  const MEM_OWN_STACK& own = mem_own_stack;
  if (stack_pointer - own.low < own.high - own.low) [[likely]]
    return own.high;
  return mem_find_stack_end(stack_pointer);
}

/// The end of a stack again, when `wanted` lies beyond what was known: at `wanted` or behind it if
/// all up to there may be read, else before it.
std::uintptr_t mem_extend_stack_end(std::uintptr_t end, std::uintptr_t wanted);

/// Whether a function called now may use so many bytes of stack, as far as can be told. The main
/// thread's own stack grows when it is used.
bool mem_has_stack_left(std::size_t bytes);
