// The entries of a module's .eh_frame section.
#pragma once

#include <cstdint>

/// The column that stands for the return address; register numbers are those of the x86-64 ABI.
inline constexpr std::uint64_t mem_return_address_column = 16;

/// What several functions share (a common information entry).
struct MEM_CFI_COMMON {
  std::uint64_t code_alignment = 0;
  std::int64_t data_alignment = 0;
  unsigned char pointer_encoding = 0;
  bool has_augmentation_size = false;
  unsigned char const* begin = nullptr;  ///< its instructions
  unsigned char const* end = nullptr;
};

/// One function's entry (a frame description).
struct MEM_CFI_DESCRIPTION {
  MEM_CFI_COMMON common;
  std::uint64_t function = 0;  ///< its first address
  unsigned char const* begin = nullptr;
  unsigned char const* end = nullptr;

  /// Finds and reads the entry of the function that `pc` lies in. False when there is none, or one
  /// that is written in a way compilers don't use for ordinary functions. Takes no lock.
  bool find(std::uint64_t pc);
};
