// Filling the fixed text buffers of MEM_ADDRESS_INFO.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

/// Copies `text`, cut to the buffer, and terminates it.
template <std::size_t SIZE>
void mem_set_text_field(char (&field)[SIZE], std::string_view text) {
  const std::size_t length = std::min(text.size(), SIZE - 1);
  std::copy_n(text.data(), length, field);
  field[length] = '\0';
}
