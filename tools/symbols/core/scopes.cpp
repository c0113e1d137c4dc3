#include "tools/symbols/core/scopes.h"

#include <dwarf.h>

namespace symbols {

namespace {

// In C and C++ a type outside of a function holds declarations only, and such types are most of
// what there is.
bool types_may_hold_code(Dwarf_Die& unit) {
  switch (dwarf_srclang(&unit)) {
    case DW_LANG_C:
    case DW_LANG_C89:
    case DW_LANG_C99:
    case DW_LANG_C11:
    case DW_LANG_C_plus_plus:
    case DW_LANG_C_plus_plus_03:
    case DW_LANG_C_plus_plus_11:
    case DW_LANG_C_plus_plus_14:
      return false;
    default:
      return true;
  }
}

}  // namespace

SCOPES::SCOPES(Dwarf_Die unit) : m_unit(dwarf_dieoffset(&unit)), m_dies(unit) {
  fill(m_map, unit, m_dies.outer_functions(unit, types_may_hold_code(unit)));
}

std::optional<std::uint32_t> SCOPES::find(Dwarf_Die unit, std::uint64_t address) {
  std::optional<std::uint32_t> found = m_map.find(address);
  if (!found &&
      !m_is_whole) {  // a function inside of another one, or a part that it is silent about
    read_whole(unit);
    found = m_map.find(address);
  }
  if (!found || m_is_whole) return found;
  const std::optional<std::uint32_t> inside = inside_of(unit, *found).find(address);
  return inside ? inside : found;
}

const RANGE_MAP& SCOPES::whole_map(Dwarf_Die unit) {
  if (!m_is_whole) read_whole(unit);
  return m_map;
}

void SCOPES::read_whole(Dwarf_Die& unit) {
  m_is_whole = true;
  m_scopes.clear();
  m_insides.clear();
  m_map = {};
  m_bytes_of_maps = 0;
  fill(m_map, unit, m_dies.all_inside(unit, m_unit));
}

const RANGE_MAP& SCOPES::inside_of(Dwarf_Die& unit, std::uint32_t function) {
  const auto [known, is_new] = m_insides.try_emplace(function);
  if (is_new) fill(known->second, unit, m_dies.all_inside(unit, m_unit + m_scopes[function].die));
  return known->second;
}

void SCOPES::fill(RANGE_MAP& map, Dwarf_Die& unit, std::span<const CODE_DIE> dies) {
  std::vector<std::uint32_t> numbers;
  numbers.reserve(dies.size());
  for (const CODE_DIE& die : dies)
    numbers.push_back(
        add_scope(map, unit, die, die.outer == CODE_DIE::none ? none : numbers[die.outer]));
  map.finish();
  m_bytes_of_maps += map.bytes();
}

// What has no code is none: a declaration, or the pattern that others are instances of.
std::uint32_t SCOPES::add_scope(RANGE_MAP& map, Dwarf_Die& unit, const CODE_DIE& die,
                                std::uint32_t outer) {
  const auto number = static_cast<std::uint32_t>(m_scopes.size());
  const std::uint64_t low = add_ranges(map, unit, die, number);
  if (low == 0) return outer;
  m_scopes.push_back({.low = low, .die = die.offset - m_unit, .outer = outer});
  return number;
}

// Returns where the first one begins, or 0.
std::uint64_t SCOPES::add_ranges(RANGE_MAP& map, Dwarf_Die& unit, const CODE_DIE& code,
                                 std::uint32_t number) {
  if (code.low != 0 && code.bytes != 0) {
    map.add(code.low, code.low + code.bytes, number);
    return code.low;
  }
  Dwarf_Die die;
  if (dwarf_offdie(dwarf_cu_getdwarf(unit.cu), code.offset, &die) == nullptr) return 0;
  Dwarf_Addr base = 0;
  Dwarf_Addr low = 0;
  Dwarf_Addr high = 0;
  std::uint64_t first = 0;
  for (std::ptrdiff_t next = 0; (next = dwarf_ranges(&die, next, &base, &low, &high)) > 0;) {
    if (first == 0) first = low;
    map.add(low, high, number);
  }
  return first;
}

}  // namespace symbols
