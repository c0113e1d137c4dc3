#include "tools/symbols/core/symbol_table.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace symbols {

namespace {

char const* name_of(Dwfl_Module* module, std::uint32_t number) {
  GElf_Sym symbol;
  GElf_Addr address = 0;
  return dwfl_module_getsym_info(module, static_cast<int>(number), &symbol, &address, nullptr,
                                 nullptr, nullptr);
}

bool can_be_code(const GElf_Sym& symbol) {
  const int type = GELF_ST_TYPE(symbol.st_info);
  return symbol.st_shndx != SHN_UNDEF && symbol.st_shndx != SHN_ABS &&
         (type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE);
}

}  // namespace

SYMBOL_TABLE::SYMBOL_TABLE(Dwfl_Module* module) : m_module(module) {
  const int count = dwfl_module_getsymtab(module);
  std::uint32_t file = 0;
  for (int number = 1; number < count; ++number) {
    GElf_Sym symbol;
    GElf_Addr address = 0;
    char const* name =
        dwfl_module_getsym_info(module, number, &symbol, &address, nullptr, nullptr, nullptr);
    if (name == nullptr) continue;
    if (GELF_ST_TYPE(symbol.st_info) == STT_FILE) file = static_cast<std::uint32_t>(number);
    if (!can_be_code(symbol) || *name == '\0') continue;
    const bool is_local = GELF_ST_BIND(symbol.st_info) == STB_LOCAL;
    m_entries.push_back({.low = address,
                         .size = symbol.st_size,
                         .number = static_cast<std::uint32_t>(number),
                         .file = is_local ? file : 0,
                         .is_function = GELF_ST_TYPE(symbol.st_info) != STT_NOTYPE});
  }
  // At one address the best comes last.
  std::sort(m_entries.begin(), m_entries.end(), [](const ENTRY& a, const ENTRY& b) {
    return std::tuple(a.low, a.is_function, b.size, b.number) <
           std::tuple(b.low, b.is_function, a.size, a.number);
  });
  m_entries.shrink_to_fit();
}

std::vector<SYMBOL_TABLE::ENTRY>::const_iterator SYMBOL_TABLE::behind(std::uint64_t address) const {
  return std::partition_point(m_entries.begin(), m_entries.end(),
                              [&](const ENTRY& entry) { return entry.low <= address; });
}

SYMBOL_TABLE::SYMBOL SYMBOL_TABLE::symbol_of(const ENTRY& entry) const {
  return {.name = name_of(m_module, entry.number),
          .file = entry.file == 0 ? nullptr : name_of(m_module, entry.file)};
}

// Functions do not lie in each other, so those before the last few that begin in front of the
// address are not looked at.
std::optional<SYMBOL_TABLE::SYMBOL> SYMBOL_TABLE::find(std::uint64_t address) const {
  constexpr int most_looked_at = 64;
  auto entry = behind(address);
  for (int i = 0; i < most_looked_at && entry != m_entries.begin(); ++i) {
    --entry;
    const bool is_last = i == 0;
    if (address - entry->low < entry->size || (entry->size == 0 && is_last))
      return symbol_of(*entry);
  }
  return std::nullopt;
}

std::optional<SYMBOL_TABLE::SYMBOL> SYMBOL_TABLE::starting_at(std::uint64_t address) const {
  const auto entry = behind(address);
  if (entry == m_entries.begin() || std::prev(entry)->low != address) return std::nullopt;
  return symbol_of(*std::prev(entry));
}

std::uint64_t SYMBOL_TABLE::described_bytes() const {
  std::uint64_t bytes = 0;
  std::uint64_t end = 0;
  for (const ENTRY& entry : m_entries) {
    const std::uint64_t entry_end = entry.low + entry.size;
    if (entry_end <= end) continue;
    bytes += entry_end - std::max(end, entry.low);
    end = entry_end;
  }
  return bytes;
}

}  // namespace symbols
