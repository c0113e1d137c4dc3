#include "platform/thr_symbol_table.h"

#include <algorithm>
#include <cstring>

namespace {

std::uint32_t hash_of(char const* name) {
  std::uint32_t hash = 5381;
  for (; *name != '\0'; ++name) hash = hash * 33 + static_cast<unsigned char>(*name);
  return hash;
}

}  // namespace

THR_SYMBOL_TABLE::THR_SYMBOL_TABLE(const Elf64_Dyn* dynamic, Elf64_Addr bias) {
  for (const Elf64_Dyn* entry = dynamic; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
    // The loader has added the bias, unless the section may not be written to.
    const bool has_bias = entry->d_un.d_ptr >= bias;
    const Elf64_Addr address = entry->d_un.d_ptr + (has_bias ? 0 : bias);
    if (entry->d_tag == DT_SYMTAB) m_symbols = reinterpret_cast<const Elf64_Sym*>(address);
    if (entry->d_tag == DT_STRTAB) m_names = reinterpret_cast<char const*>(address);
    if (entry->d_tag == DT_GNU_HASH) m_hash = reinterpret_cast<const std::uint32_t*>(address);
  }
}

bool THR_SYMBOL_TABLE::is_complete() const {
  return m_symbols != nullptr && m_names != nullptr && m_hash != nullptr;
}

// The symbols of a bucket stand in a row, and the buckets one behind the other: the last symbol is
// that of the bucket that begins last.
THR_SYMBOL_TABLE::RANGE THR_SYMBOL_TABLE::found_by_others() const {
  if (!is_complete()) return {0, 0};
  std::uint32_t last = buckets() == 0 ? 0 : *std::max_element(bucket(), bucket() + buckets());
  if (last < first()) return {0, 0};
  while ((chain()[last - first()] & 1) == 0) ++last;
  return {first(), last + 1};
}

// A symbol's hash stands without its lowest bit, which marks the last one of the bucket.
bool THR_SYMBOL_TABLE::may_give(char const* name) const {
  if (!is_complete()) return m_symbols != nullptr;
  const std::uint32_t hash = hash_of(name);
  std::uint32_t number = buckets() == 0 ? 0 : bucket()[hash % buckets()];
  if (number < first()) return false;
  for (;; ++number) {
    const std::uint32_t found = chain()[number - first()];
    if ((found | 1) == (hash | 1) && std::strcmp(name_of(number), name) == 0 &&
        m_symbols[number].st_shndx != SHN_UNDEF)
      return true;
    if ((found & 1) != 0) return false;
  }
}
