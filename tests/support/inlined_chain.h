// Calls inlined into one another. The lines belong to files that do not exist, so that what a tool
// says about them does not depend on where the tests are built.
#pragma once

namespace chain {

// The empty asm keeps the call before it from becoming a jump: its return address is wanted.
#define RETURN_FROM_CALL(call)       \
  do {                               \
    void const* result = (call);     \
    asm volatile("" : "+r"(result)); \
    return result;                   \
  } while (false)

/// The address to which this call returns, as an unwinder would report it.
[[gnu::noinline]] inline void const* here() { RETURN_FROM_CALL(__builtin_return_address(0)); }

// clang-format off
#line 40 "/chain/level.h"
template <int LEVEL> [[gnu::always_inline]] inline void const* level() { if constexpr (LEVEL == 1) RETURN_FROM_CALL(here()); else RETURN_FROM_CALL(level<LEVEL - 1>()); }

#line 80 "/chain/program.cpp"
[[gnu::noinline]] inline void const* hundred_levels() { RETURN_FROM_CALL(level<100>()); }
// clang-format on

}  // namespace chain
