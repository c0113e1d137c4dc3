#include "tools/symbols/core/scopes.h"

#include <dwarf.h>

namespace symbols {

namespace {

constexpr int deepest = 256;  // of a damaged file; others come nowhere near

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

std::uint32_t number_of(Dwarf_Die& die, unsigned name) {
  Dwarf_Attribute attribute;
  Dwarf_Word value = 0;
  return dwarf_attr(&die, name, &attribute) != nullptr && dwarf_formudata(&attribute, &value) == 0
             ? static_cast<std::uint32_t>(value)
             : 0;
}

}  // namespace

SCOPES::SCOPES(Dwarf_Die unit)
    : m_unit(dwarf_dieoffset(&unit)), m_types_may_hold_code(types_may_hold_code(unit)) {
  add_children(m_map, unit, {});
  finish(m_map);
}

void SCOPES::finish(RANGE_MAP& map) {
  map.finish();
  m_bytes_of_maps += map.bytes();
}

std::optional<std::uint32_t> SCOPES::find(Dwarf_Die unit, std::uint64_t address) {
  std::optional<std::uint32_t> found = m_map.find(address);
  if (!found && !m_is_whole) {  // a function inside of another one
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

void SCOPES::read_whole(Dwarf_Die unit) {
  m_is_whole = true;
  m_scopes.clear();
  m_insides.clear();
  m_map = {};
  m_bytes_of_maps = 0;
  add_children(m_map, unit, {.enters_functions = true});
  finish(m_map);
}

const RANGE_MAP& SCOPES::inside_of(Dwarf_Die unit, std::uint32_t function) {
  const auto [known, is_new] = m_insides.try_emplace(function);
  RANGE_MAP& map = known->second;
  Dwarf_Die die;
  if (is_new && unit.cu != nullptr &&
      dwarf_offdie(dwarf_cu_getdwarf(unit.cu), m_unit + m_scopes[function].die, &die) != nullptr) {
    add_children(map, die, {.outer = function, .is_function = true, .enters_functions = true});
    finish(map);
  }
  return map;
}

void SCOPES::add_children(RANGE_MAP& map, Dwarf_Die& parent, PLACE place) {
  Dwarf_Die die;
  if (place.depth == deepest || dwarf_child(&parent, &die) != 0) return;
  Dwarf_Off last = 0;
  do {
    // A damaged file may lead back.
    if (dwarf_dieoffset(&die) <= last) return;
    last = dwarf_dieoffset(&die);
    add(map, die, place);
  } while (dwarf_siblingof(&die, &die) == 0);
}

void SCOPES::add(RANGE_MAP& map, Dwarf_Die& die, PLACE place) {
  ++place.depth;
  switch (dwarf_tag(&die)) {
    case DW_TAG_subprogram:
      place.outer = add_scope(map, die, none);
      place.is_function = true;
      if (place.enters_functions) add_children(map, die, place);
      return;
    case DW_TAG_inlined_subroutine:
      place.outer = add_scope(map, die, place.outer);
      return add_children(map, die, place);
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_enumeration_type:
    case DW_TAG_interface_type:
      if (!m_types_may_hold_code && !place.is_function) return;
      [[fallthrough]];
    case DW_TAG_lexical_block:
    case DW_TAG_try_block:
    case DW_TAG_catch_block:
    case DW_TAG_namespace:
    case DW_TAG_module:
    case DW_TAG_with_stmt:
      return add_children(map, die, place);
    default:
      return;
  }
}

// What has no code is none: a declaration, or the pattern that others are instances of.
std::uint32_t SCOPES::add_scope(RANGE_MAP& map, Dwarf_Die& die, std::uint32_t outer) {
  const auto number = static_cast<std::uint32_t>(m_scopes.size());
  Dwarf_Addr base = 0;
  Dwarf_Addr low = 0;
  Dwarf_Addr high = 0;
  std::uint64_t lowest = 0;
  for (std::ptrdiff_t next = 0; (next = dwarf_ranges(&die, next, &base, &low, &high)) > 0;) {
    if (lowest == 0) lowest = low;
    map.add(low, high, number);
  }
  if (lowest == 0) return outer;
  m_scopes.push_back({.low = lowest,
                      .die = dwarf_dieoffset(&die) - m_unit,
                      .outer = outer,
                      .call_file = outer == none ? 0 : number_of(die, DW_AT_call_file),
                      .call_line = outer == none ? 0 : number_of(die, DW_AT_call_line)});
  return number;
}

}  // namespace symbols
