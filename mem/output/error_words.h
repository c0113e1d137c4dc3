// What the kernel's answers are called, in no language of the host's.
#pragma once

#include <cstring>

/// Of a system call's negative answer. Never null; stays.
inline char const* mem_error_words(long answer) {
  char const* const words = strerrordesc_np(static_cast<int>(-answer));
  return words != nullptr ? words : "an error without a name";
}
