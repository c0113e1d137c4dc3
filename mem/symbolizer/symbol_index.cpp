#include "mem/symbolizer/symbol_index.h"

#include <elf.h>

#include <algorithm>

namespace {

bool has_address(const Elf64_Sym& symbol) {
  return (symbol.st_shndx != SHN_UNDEF || symbol.st_value != 0) &&
         ELF64_ST_TYPE(symbol.st_info) != STT_TLS;
}

// One without a size is where it is, and nowhere else.
Elf64_Addr end_of(const Elf64_Sym& symbol) {
  const bool is_a_place = symbol.st_shndx == SHN_UNDEF || symbol.st_size == 0;
  return symbol.st_value + (is_a_place ? 1 : symbol.st_size);
}

}  // namespace

MEM_SYMBOL_TABLE::MEM_SYMBOL_TABLE(const link_map& map) {
  for (const Elf64_Dyn* entry = map.l_ld; entry != nullptr && entry->d_tag != DT_NULL; ++entry) {
    // The loader has added the bias, unless the section may not be written to.
    const bool has_bias = entry->d_un.d_ptr >= map.l_addr;
    const Elf64_Addr address = entry->d_un.d_ptr + (has_bias ? 0 : map.l_addr);
    if (entry->d_tag == DT_SYMTAB) m_symbols = reinterpret_cast<const Elf64_Sym*>(address);
    if (entry->d_tag == DT_STRTAB) m_names = reinterpret_cast<char const*>(address);
    if (entry->d_tag == DT_GNU_HASH) m_hash = reinterpret_cast<const std::uint32_t*>(address);
  }
}

// The symbols of a bucket stand in a row, and the buckets one behind the other: the last symbol is
// that of the bucket that begins last.
MEM_SYMBOL_TABLE::RANGE MEM_SYMBOL_TABLE::found_by_others() const {
  if (m_symbols == nullptr || m_names == nullptr || m_hash == nullptr) return {0, 0};
  const std::uint32_t buckets = m_hash[0];
  const std::uint32_t first = m_hash[1];
  const std::uint32_t* const bucket = m_hash + 4 + std::size_t{2} * m_hash[2];
  const std::uint32_t* const chain = bucket + buckets;
  std::uint32_t last = buckets == 0 ? 0 : *std::max_element(bucket, bucket + buckets);
  if (last < first) return {0, 0};
  while ((chain[last - first] & 1) == 0) ++last;
  return {first, last + 1};
}

MEM_SYMBOL_INDEX::MEM_SYMBOL_INDEX(const MEM_SYMBOL_TABLE& table) {
  const auto [first, end] = table.found_by_others();
  m_entries.reserve(end - first);
  for (std::uint32_t number = first; number < end; ++number)
    if (has_address(table[number])) m_entries.push_back({0, number});
  // Of several at one address the first is told.
  std::sort(m_entries.begin(), m_entries.end(), [&](const ENTRY& a, const ENTRY& b) {
    const Elf64_Addr a_value = table[a.number].st_value;
    const Elf64_Addr b_value = table[b.number].st_value;
    return a_value != b_value ? a_value < b_value : a.number > b.number;
  });
  Elf64_Addr end_of_all = 0;
  for (ENTRY& entry : m_entries)
    entry.end_of_all = end_of_all = std::max(end_of_all, end_of(table[entry.number]));
}

std::uint32_t MEM_SYMBOL_INDEX::find(const MEM_SYMBOL_TABLE& table, Elf64_Addr address) const {
  auto entry = std::partition_point(
      m_entries.begin(), m_entries.end(),
      [&](const ENTRY& candidate) { return table[candidate.number].st_value <= address; });
  while (entry != m_entries.begin()) {
    --entry;
    if (end_of(table[entry->number]) > address) return entry->number;
    if (entry->end_of_all <= address) break;
  }
  return none;
}
