// Asking the kernel whether memory may be read, before it is.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::uintptr_t mem_page_size = 4096;

inline constexpr std::uintptr_t mem_page_of(std::uintptr_t address) {
  return address & ~(mem_page_size - 1);
}

/// Whether every page of [begin, begin + bytes) may be read at this moment. A system call a page,
/// of the order of 0.1 microseconds. Any thread, also in a signal handler; errno stays as it is.
bool mem_is_readable(std::uintptr_t begin, std::size_t bytes);
