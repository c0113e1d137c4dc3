// The functions that a module's symbols tell of.
#pragma once

#include <elfutils/libdwfl.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace symbols {

/// All of the tables there are: .symtab of the module or of its debug file, else .dynsym, and what
/// stands compressed in .gnu_debugdata.
class SYMBOL_TABLE {
 public:
  struct SYMBOL {
    char const* name;
    char const* file;  ///< that it is local to; null for none
  };

  explicit SYMBOL_TABLE(Dwfl_Module* module);

  /// The function that has the address. Where several have, the smallest of those that begin last;
  /// a place without a size reaches to the next symbol.
  std::optional<SYMBOL> find(std::uint64_t address) const;
  /// One that begins at the address.
  std::optional<SYMBOL> starting_at(std::uint64_t address) const;
  /// How many bytes of code have a function.
  std::uint64_t described_bytes() const;

 private:
  struct ENTRY {
    std::uint64_t low;
    std::uint64_t size;
    std::uint32_t number;
    std::uint32_t file;  // the number of the file's symbol; 0 for none
    bool is_function;
  };
  SYMBOL symbol_of(const ENTRY& entry) const;
  std::vector<ENTRY>::const_iterator behind(std::uint64_t address) const;

  Dwfl_Module* m_module;
  std::vector<ENTRY> m_entries;
};

}  // namespace symbols
