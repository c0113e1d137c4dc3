// The symbols of a loaded module, read where the loader has put them.
#pragma once

#include <link.h>

#include <cstdint>

/// Reads the module: while it is loaded.
class THR_SYMBOL_TABLE {
 public:
  /// Of the module with that dynamic section, whose addresses are those of its file and the bias.
  THR_SYMBOL_TABLE(const Elf64_Dyn* dynamic, Elf64_Addr bias);

  /// The symbols that other modules may find by the table's hash table, as a range of numbers.
  struct RANGE {
    std::uint32_t first;
    std::uint32_t end;
  };
  RANGE found_by_others() const;
  /// Whether others may find that symbol here; true also where only the loader knows.
  bool may_give(char const* name) const;

  const Elf64_Sym& operator[](std::uint32_t number) const { return m_symbols[number]; }
  char const* name_of(std::uint32_t number) const { return m_names + m_symbols[number].st_name; }

 private:
  bool is_complete() const;
  std::uint32_t buckets() const { return m_hash[0]; }
  std::uint32_t first() const { return m_hash[1]; }
  const std::uint32_t* bucket() const { return m_hash + 4 + std::size_t{2} * m_hash[2]; }
  const std::uint32_t* chain() const { return bucket() + buckets(); }

  const Elf64_Sym* m_symbols = nullptr;
  char const* m_names = nullptr;
  const std::uint32_t* m_hash = nullptr;
};
