#include "malloc/own_definition.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>
#include <cstring>

namespace {

// The loader has relocated the addresses in here.
template <class TABLE>
TABLE const* table(const link_map& module, ElfW(Sxword) tag) {
  for (const ElfW(Dyn)* entry = module.l_ld; entry->d_tag != DT_NULL; ++entry)
    if (entry->d_tag == tag) return reinterpret_cast<TABLE const*>(entry->d_un.d_ptr);
  return nullptr;
}

std::uint32_t hash_of(char const* name) {
  std::uint32_t hash = 5381;
  for (; *name != 0; ++name) hash = hash * 33 + static_cast<unsigned char>(*name);
  return hash;
}

// DT_GNU_HASH: four words, a bloom filter, the buckets' first symbols, and a word for each symbol
// whose lowest bit ends its bucket. It has defined symbols alone.
struct HASH_TABLE {
  std::uint32_t bucket_count;
  std::uint32_t first_symbol;
  std::uint32_t bloom_size;
  std::uint32_t bloom_shift;

  std::uint32_t const* buckets() const {
    return reinterpret_cast<std::uint32_t const*>(this + 1) + bloom_size * (sizeof(ElfW(Addr)) / 4);
  }
  template <class IS_IT>
  std::uint32_t find(std::uint32_t hash, IS_IT is_it) const {
    std::uint32_t const* const words = buckets() + bucket_count;
    std::uint32_t symbol = buckets()[hash % bucket_count];
    for (; symbol >= first_symbol; ++symbol) {
      const std::uint32_t word = words[symbol - first_symbol];
      if ((word | 1) == (hash | 1) && is_it(symbol)) return symbol;
      if ((word & 1) != 0) break;
    }
    return 0;
  }
};

}  // namespace

void* mem_definition_in_module_of(void const* address, char const* name) {
  dl_find_object found;
  if (_dl_find_object(const_cast<void*>(address), &found) != 0) return nullptr;
  const link_map& module = *found.dlfo_link_map;
  const auto* const hashes = table<HASH_TABLE>(module, DT_GNU_HASH);
  const auto* const symbols = table<ElfW(Sym)>(module, DT_SYMTAB);
  const auto* const names = table<char>(module, DT_STRTAB);
  if (hashes == nullptr || symbols == nullptr || names == nullptr) return nullptr;
  const std::uint32_t symbol = hashes->find(hash_of(name), [&](std::uint32_t candidate) {
    return std::strcmp(names + symbols[candidate].st_name, name) == 0;
  });
  return symbol == 0 ? nullptr : reinterpret_cast<void*>(module.l_addr + symbols[symbol].st_value);
}
