#include "mem/symbolizer/loaded_module.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

namespace {

// The symbols of a module that others may find, by the hash table for these.
class SYMBOL_TABLE {
 public:
  explicit SYMBOL_TABLE(const link_map& map) {
    for (const Elf64_Dyn* entry = map.l_ld; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
      // The loader has added the bias, unless the section may not be written to.
      const bool has_bias = entry->d_un.d_ptr >= map.l_addr;
      const Elf64_Addr address = entry->d_un.d_ptr + (has_bias ? 0 : map.l_addr);
      if (entry->d_tag == DT_SYMTAB) m_symbols = reinterpret_cast<const Elf64_Sym*>(address);
      if (entry->d_tag == DT_STRTAB) m_names = reinterpret_cast<char const*>(address);
      if (entry->d_tag == DT_GNU_HASH) m_hash = reinterpret_cast<const std::uint32_t*>(address);
    }
  }

  template <class TAKE>
  void for_each(TAKE take) const {
    if (m_symbols == nullptr || m_names == nullptr || m_hash == nullptr) return;
    const std::uint32_t buckets = m_hash[0];
    const std::uint32_t first_symbol = m_hash[1];
    const std::uint32_t* const bucket = m_hash + 4 + std::size_t{2} * m_hash[2];
    const std::uint32_t* const chain = bucket + buckets - first_symbol;
    for (std::uint32_t i = 0; i < buckets; ++i) {
      if (bucket[i] < first_symbol) continue;
      std::uint32_t number = bucket[i];
      do {
        take(m_symbols[number], m_names + m_symbols[number].st_name);
      } while ((chain[number++] & 1) == 0);
    }
  }

 private:
  const Elf64_Sym* m_symbols = nullptr;
  char const* m_names = nullptr;
  const std::uint32_t* m_hash = nullptr;
};

bool covers(const Elf64_Sym& symbol, Elf64_Addr address) {
  const bool has_address = symbol.st_shndx != SHN_UNDEF || symbol.st_value != 0;
  if (!has_address || ELF64_ST_TYPE(symbol.st_info) == STT_TLS || symbol.st_value > address)
    return false;
  return symbol.st_shndx == SHN_UNDEF || symbol.st_size == 0
             ? symbol.st_value == address
             : address - symbol.st_value < symbol.st_size;
}

}  // namespace

bool MEM_LOADED_MODULE::find(void const* address) {
  dl_find_object found;
  if (_dl_find_object(const_cast<void*>(address), &found) != 0) return false;
  map = found.dlfo_link_map;
  name = map->l_name;
  start = found.dlfo_map_start;
  bias = map->l_addr;
  return true;
}

MEM_LOADED_SYMBOL MEM_LOADED_MODULE::nearest_symbol(void const* address) const {
  const Elf64_Addr wanted = reinterpret_cast<std::uintptr_t>(address) - bias;
  MEM_LOADED_SYMBOL nearest;
  Elf64_Addr value = 0;
  SYMBOL_TABLE(*map).for_each([&](const Elf64_Sym& symbol, char const* symbol_name) {
    if (!covers(symbol, wanted) || (nearest.name != nullptr && symbol.st_value <= value)) return;
    value = symbol.st_value;
    nearest = {symbol_name, reinterpret_cast<void*>(bias + value)};
  });
  return nearest;
}
