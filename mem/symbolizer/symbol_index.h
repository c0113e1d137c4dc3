// The exported symbols of a module in the order of their addresses.
#pragma once

#include <link.h>

#include <cstdint>
#include <span>
#include <vector>

#include "mem/base/bookkeeping.h"

/// A symbol that a module gives to others.
struct MEM_LOADED_SYMBOL {
  char const* name = nullptr;  ///< the module's text; null for none
  void* address = nullptr;
};

/// Where the loader has put a module's table of symbols. Reads the module: while it is loaded.
class MEM_SYMBOL_TABLE {
 public:
  explicit MEM_SYMBOL_TABLE(const link_map& map);

  /// The symbols that other modules may find by the table's hash table, as a range of numbers.
  struct RANGE {
    std::uint32_t first;
    std::uint32_t end;
  };
  RANGE found_by_others() const;
  const Elf64_Sym& operator[](std::uint32_t number) const { return m_symbols[number]; }
  char const* name_of(std::uint32_t number) const { return m_names + m_symbols[number].st_name; }

 private:
  const Elf64_Sym* m_symbols = nullptr;
  char const* m_names = nullptr;
  const std::uint32_t* m_hash = nullptr;
};

/// Made once for a module's file, of any module that was loaded from it. Immutable: any thread.
class MEM_SYMBOL_INDEX {
 public:
  /// May throw std::bad_alloc. A millisecond for ten thousand symbols.
  explicit MEM_SYMBOL_INDEX(const MEM_SYMBOL_TABLE& table);

  /// The symbol with the highest address among those that an address lies in, counted as in the
  /// file; `none` for none.
  static constexpr std::uint32_t none = UINT32_MAX;
  std::uint32_t find(const MEM_SYMBOL_TABLE& table, Elf64_Addr address) const;

 private:
  struct ENTRY {
    Elf64_Addr end_of_all;  // the highest end of this symbol and all before it
    std::uint32_t number;
  };
  std::vector<ENTRY, MEM_BOOKKEEPING_ALLOCATOR<ENTRY>> m_entries;
};
