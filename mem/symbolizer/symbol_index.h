// The exported symbols of a module in the order of their addresses.
#pragma once

#include <link.h>

#include <cstdint>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "platform/thr_symbol_table.h"

/// A symbol that a module gives to others.
struct MEM_LOADED_SYMBOL {
  char const* name = nullptr;  ///< the module's text; null for none
  void* address = nullptr;
};

/// The number of the symbol with the highest address among those that an address lies in, counted
/// as in the file; `mem_no_symbol` for none. Looks at all of them.
inline constexpr std::uint32_t mem_no_symbol = UINT32_MAX;
std::uint32_t mem_find_symbol(const THR_SYMBOL_TABLE& table, Elf64_Addr address);

/// The same for many addresses. Made once for a module's file, of any module that was loaded from
/// it. Immutable: any thread.
class MEM_SYMBOL_INDEX {
 public:
  /// May throw std::bad_alloc. A millisecond for ten thousand symbols.
  explicit MEM_SYMBOL_INDEX(const THR_SYMBOL_TABLE& table);

  std::uint32_t find(const THR_SYMBOL_TABLE& table, Elf64_Addr address) const;

 private:
  struct ENTRY {
    Elf64_Addr end_of_all;  // the highest end of this symbol and all before it
    std::uint32_t number;
  };
  std::vector<ENTRY, MEM_BOOKKEEPING_ALLOCATOR<ENTRY>> m_entries;
};
