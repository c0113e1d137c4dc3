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

// Of several at one address the first is told.
std::uint32_t mem_find_symbol(const THR_SYMBOL_TABLE& table, Elf64_Addr address) {
  const auto [first, end] = table.found_by_others();
  std::uint32_t found = mem_no_symbol;
  for (std::uint32_t number = first; number < end; ++number) {
    const Elf64_Sym& symbol = table[number];
    if (symbol.st_value <= address && has_address(symbol) && end_of(symbol) > address &&
        (found == mem_no_symbol || table[found].st_value < symbol.st_value))
      found = number;
  }
  return found;
}

MEM_SYMBOL_INDEX::MEM_SYMBOL_INDEX(const THR_SYMBOL_TABLE& table) {
  const auto [first, end] = table.found_by_others();
  m_entries.reserve(end - first);
  for (std::uint32_t number = first; number < end; ++number)
    if (has_address(table[number])) m_entries.push_back({0, number});
  std::sort(m_entries.begin(), m_entries.end(), [&](const ENTRY& a, const ENTRY& b) {
    const Elf64_Addr a_value = table[a.number].st_value;
    const Elf64_Addr b_value = table[b.number].st_value;
    return a_value != b_value ? a_value < b_value : a.number > b.number;
  });
  Elf64_Addr end_of_all = 0;
  for (ENTRY& entry : m_entries)
    entry.end_of_all = end_of_all = std::max(end_of_all, end_of(table[entry.number]));
}

std::uint32_t MEM_SYMBOL_INDEX::find(const THR_SYMBOL_TABLE& table, Elf64_Addr address) const {
  auto entry = std::partition_point(
      m_entries.begin(), m_entries.end(),
      [&](const ENTRY& candidate) { return table[candidate.number].st_value <= address; });
  while (entry != m_entries.begin()) {
    --entry;
    if (end_of(table[entry->number]) > address) return entry->number;
    if (entry->end_of_all <= address) break;
  }
  return mem_no_symbol;
}
