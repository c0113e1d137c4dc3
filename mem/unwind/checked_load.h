// Reading a word of memory that may not be there.
#pragma once

#include <cstdint>
#include <cstring>
#include <optional>

#include "mem/modules/readable_memory.h"

/// From any function's frame, which a sanitizer takes for a fault.
__attribute__((no_sanitize("address", "thread"))) inline std::uintptr_t mem_load_word(
    std::uintptr_t address) {
  std::uintptr_t word;
  std::memcpy(&word, reinterpret_cast<void const*>(address), sizeof word);
  return word;
}

/// None when it can't be read.
inline std::optional<std::uintptr_t> mem_load_word_checked(std::uintptr_t address) {
  if (address == 0 || !mem_is_readable(address, sizeof address)) return std::nullopt;
  return mem_load_word(address);
}
