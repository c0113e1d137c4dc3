// The entries of a module's .eh_frame section.
#pragma once

#include <cstdint>

#include "mem/unwind/cfi_reader.h"

/// The column that stands for the return address; register numbers are those of the x86-64 ABI.
inline constexpr std::uint64_t mem_return_address_column = 16;

/// The memory that a module's call frame information has to lie in. Nothing outside is read, nor
/// a page inside that can't be: a damaged module has no information, that is all.
class MEM_CFI_MEMORY {
 public:
  MEM_CFI_MEMORY() = default;
  /// [begin, end) is the module, with its .eh_frame_hdr section at `header`.
  MEM_CFI_MEMORY(std::uintptr_t begin, std::uintptr_t end, std::uintptr_t header)
      : m_begin(begin), m_end(end), m_header(header) {}

  std::uintptr_t header() const { return m_header; }

  /// A reader for so many bytes; one that has failed when they are not to be read.
  MEM_CFI_READER read(std::uintptr_t at, std::uint64_t bytes);

 private:
  std::uintptr_t m_begin = 0;
  std::uintptr_t m_end = 0;
  std::uintptr_t m_header = 0;
  std::uintptr_t m_readable_page = 1;  // the last one that was asked for; 1: none was
};

/// What several functions share (a common information entry).
struct MEM_CFI_COMMON {
  std::uint64_t code_alignment = 0;
  std::int64_t data_alignment = 0;
  unsigned char pointer_encoding = 0;
  bool has_augmentation_size = false;
  bool is_signal_frame = false;
  MEM_CFI_READER instructions;
};

/// One function's entry (a frame description).
struct MEM_CFI_DESCRIPTION {
  MEM_CFI_COMMON common;
  std::uint64_t function = 0;  ///< its first address
  MEM_CFI_READER instructions;

  /// Finds and reads the entry of the function that `pc` lies in. False when there is none, or one
  /// that is written in a way compilers don't use. Takes no lock.
  bool find(std::uint64_t pc);

  /// The same in this memory.
  bool find_in(MEM_CFI_MEMORY memory, std::uint64_t pc);
};
