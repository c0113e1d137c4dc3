// A build id as people write it.
#pragma once

#include <string_view>

#include "mem/symbolizer/elf_identity.h"

/// In hexadecimal; empty when there is none. The note's own length is not kept: one of the usual
/// ones.
class MEM_BUILD_ID_TEXT {
 public:
  explicit MEM_BUILD_ID_TEXT(const MEM_ELF_IDENTITY& identity);
  std::string_view text() const { return {m_text, m_length}; }

 private:
  char m_text[64];
  std::size_t m_length = 0;
};
