#include "tools/symbols/core/debug_information.h"

#include <dwarf.h>
#include <malloc.h>

#include <algorithm>
#include <string_view>

namespace symbols {

namespace {

constexpr std::size_t most_bytes_of_tables = std::size_t{32} << 20;
constexpr std::size_t most_growth = std::size_t{16} << 20;
constexpr std::size_t most_functions = 1024;  // at one address; a damaged file may tell of millions

std::size_t heap_in_use() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// What libdw has inflated is there as if it had never been compressed, but for the name.
bool is_named(std::string_view text, std::string_view name) {
  return text == name || (text.starts_with(".z") && text.substr(2) == name.substr(1));
}

std::string_view section(Elf* file, std::string_view name) {
  std::size_t names = 0;
  if (file == nullptr || elf_getshdrstrndx(file, &names) != 0) return {};
  for (Elf_Scn* part = nullptr; (part = elf_nextscn(file, part)) != nullptr;) {
    GElf_Shdr header;
    if (gelf_getshdr(part, &header) == nullptr || header.sh_type == SHT_NOBITS) continue;
    char const* text = elf_strptr(file, names, header.sh_name);
    if (text == nullptr || !is_named(text, name)) continue;
    const Elf_Data* data = elf_rawdata(part, nullptr);
    if (data == nullptr || data->d_buf == nullptr) return {};
    return {static_cast<char const*>(data->d_buf), data->d_size};
  }
  return {};
}

LINE_SECTIONS line_sections_of(Elf* file, std::string_view suffix) {
  const auto named = [&](std::string_view name) {
    return section(file, std::string(name).append(suffix));
  };
  return {.lines = named(".debug_line"),
          .line_strings = named(".debug_line_str"),
          .strings = named(".debug_str")};
}

char const* text_of(Dwarf_Die& die, unsigned name) {
  Dwarf_Attribute attribute;
  return dwarf_formstring(dwarf_attr_integrate(&die, name, &attribute));
}

std::uint32_t number_of(Dwarf_Die& die, unsigned name) {
  Dwarf_Attribute attribute;
  Dwarf_Word value = 0;
  return dwarf_attr(&die, name, &attribute) != nullptr && dwarf_formudata(&attribute, &value) == 0
             ? static_cast<std::uint32_t>(value)
             : 0;
}

std::optional<std::uint64_t> line_table_of(Dwarf_Die& unit) {
  Dwarf_Attribute attribute;
  Dwarf_Word offset = 0;
  if (dwarf_formudata(dwarf_attr(&unit, DW_AT_stmt_list, &attribute), &offset) != 0)
    return std::nullopt;
  return offset;
}

// Its names are those that the linker sees. (Assembler and C.)
bool has_plain_names(Dwarf_Die& unit) {
  switch (dwarf_srclang(&unit)) {
    case DW_LANG_C:
    case DW_LANG_C89:
    case DW_LANG_C99:
    case DW_LANG_C11:
    case DW_LANG_Mips_Assembler:
      return true;
    default:
      return false;
  }
}

}  // namespace

DEBUG_INFORMATION::DEBUG_INFORMATION(Elf* file, Dwarf* shared) : m_file(file), m_shared(shared) {
  begin();
  m_sections = line_sections_of(m_file, "");
  index_units();
}

void DEBUG_INFORMATION::begin() {
  m_dwarf = dwarf_begin_elf(m_file, DWARF_C_READ, nullptr);
  if (m_dwarf != nullptr && m_shared != nullptr) dwarf_setalt(m_dwarf, m_shared);
  m_heap_at_begin = heap_in_use() - m_bytes_of_tables;
}

void DEBUG_INFORMATION::begin_anew_when_grown() {
  if (heap_in_use() - m_bytes_of_tables < m_heap_at_begin + most_growth) return;
  dwarf_end(m_dwarf);
  begin();
}

void DEBUG_INFORMATION::index_units() {
  Dwarf_CU* unit = nullptr;
  Dwarf_Die die;
  while (m_dwarf != nullptr &&
         dwarf_get_units(m_dwarf, unit, &unit, nullptr, nullptr, &die, nullptr) == 0) {
    const int tag = dwarf_tag(&die);
    if (tag != DW_TAG_compile_unit && tag != DW_TAG_skeleton_unit) continue;
    const auto number = static_cast<std::uint32_t>(m_units.size());
    m_units.push_back({.die = dwarf_dieoffset(&die), .tables = nullptr});
    Dwarf_Addr base = 0;
    Dwarf_Addr low = 0;
    Dwarf_Addr high = 0;
    bool has_ranges = false;
    for (std::ptrdiff_t next = 0; (next = dwarf_ranges(&die, next, &base, &low, &high)) > 0;) {
      has_ranges = true;
      m_index.add(low, high, number);
    }
    if (!has_ranges && dwarf_haschildren(&die) != 0) m_without_ranges.push_back(number);
  }
  m_index.finish();
}

// What a unit says of itself may be less than all: before version 3 it could not tell of a second
// range. The table of ranges beside them, where there is one, and at last the functions do.
void DEBUG_INFORMATION::index_hidden_ranges() {
  for (const std::uint32_t number : m_without_ranges) {
    UNIT& unit = m_units[number];
    TABLES& tables = tables_of(unit);
    const std::size_t bytes = tables.bytes();
    tables.scopes.whole_map(inner_die_of(unit))
        .for_each([&](std::uint64_t low, std::uint64_t high, std::uint32_t) {
          m_hidden_index.add(low, high, number);
        });
    m_bytes_of_tables += tables.bytes() - bytes;
  }
  index_table_of_ranges();
  m_hidden_index.finish();
  m_has_hidden_index = true;
}

void DEBUG_INFORMATION::index_table_of_ranges() {
  Dwarf_Aranges* ranges = nullptr;
  std::size_t count = 0;
  if (m_dwarf == nullptr || dwarf_getaranges(m_dwarf, &ranges, &count) != 0) return;
  for (std::size_t i = 0; i < count; ++i) {
    Dwarf_Addr start = 0;
    Dwarf_Word length = 0;
    Dwarf_Off die = 0;
    if (dwarf_getarangeinfo(dwarf_onearange(ranges, i), &start, &length, &die) != 0) continue;
    const auto unit = std::partition_point(m_units.begin(), m_units.end(),
                                           [&](const UNIT& before) { return before.die < die; });
    if (unit != m_units.end() && unit->die == die)
      m_hidden_index.add(start, start + length, static_cast<std::uint32_t>(unit - m_units.begin()));
  }
}

std::optional<std::uint32_t> DEBUG_INFORMATION::unit_at(std::uint64_t address) {
  const auto number = m_index.find(address);
  if (number) return number;
  if (!m_has_hidden_index) index_hidden_ranges();
  return m_hidden_index.find(address);
}

Dwarf_Die DEBUG_INFORMATION::die_of(const UNIT& unit) const {
  Dwarf_Die die{};
  dwarf_offdie(m_dwarf, unit.die, &die);
  return die;
}

// In the file beside, where the unit is split and that one is found.
Dwarf_Die DEBUG_INFORMATION::inner_die_of(const UNIT& unit) const {
  const Dwarf_Die die = die_of(unit);
  Dwarf_Die inner{};
  std::uint8_t type = 0;
  const bool is_split =
      die.cu != nullptr &&
      dwarf_cu_info(die.cu, nullptr, &type, nullptr, &inner, nullptr, nullptr, nullptr) == 0 &&
      type == DW_UT_skeleton && inner.addr != nullptr;
  return is_split ? inner : die;
}

DEBUG_INFORMATION::TABLES& DEBUG_INFORMATION::tables_of(UNIT& unit) {
  if (!unit.tables) {
    begin_anew_when_grown();
    while (m_bytes_of_tables > most_bytes_of_tables) drop_oldest_tables();
    unit.tables = read(unit);
    m_bytes_of_tables += unit.tables->bytes();
  }
  unit.tables->last_use = ++m_uses;
  return *unit.tables;
}

std::unique_ptr<DEBUG_INFORMATION::TABLES> DEBUG_INFORMATION::read(const UNIT& unit) const {
  auto tables = std::make_unique<TABLES>();
  Dwarf_Die die = die_of(unit);
  if (die.cu == nullptr) return tables;
  char const* directory = text_of(die, DW_AT_comp_dir);
  if (const auto offset = line_table_of(die))
    tables->lines = LINE_TABLE(m_sections, *offset, directory == nullptr ? "" : directory);
  tables->scopes = SCOPES(inner_die_of(unit));
  return tables;
}

void DEBUG_INFORMATION::drop_oldest_tables() {
  UNIT* oldest = nullptr;
  for (UNIT& unit : m_units)
    if (unit.tables && (oldest == nullptr || unit.tables->last_use < oldest->tables->last_use))
      oldest = &unit;
  m_bytes_of_tables -= oldest->tables->bytes();
  oldest->tables.reset();
}

std::optional<SOURCE> DEBUG_INFORMATION::find(std::uint64_t address) {
  const auto number = unit_at(address);
  if (!number) return line_outside_of_units(address);
  UNIT& unit = m_units[*number];
  TABLES& tables = tables_of(unit);
  SOURCE source;
  if (const LINE_TABLE::ROW* row = tables.lines.find(address)) {
    source.file = tables.lines.file_name(row->file);
    source.line = row->line;
  }
  auto scope = scope_at(unit, tables, address);
  for (; scope != SCOPES::none && source.functions.size() < most_functions;
       scope = tables.scopes[scope].outer)
    source.functions.push_back(function_of(unit, tables, scope));
  return source;
}

// GNAT tells neither of functions that it makes itself nor of their ranges, but has lines for them.
std::optional<SOURCE> DEBUG_INFORMATION::line_outside_of_units(std::uint64_t address) {
  const auto number = m_index.find_here_or_before(address);
  if (!number) return std::nullopt;
  const LINE_TABLE& lines = tables_of(m_units[*number]).lines;
  const LINE_TABLE::ROW* row = lines.find(address);
  if (row == nullptr) return std::nullopt;
  return SOURCE{.file = lines.file_name(row->file), .line = row->line, .functions = {}};
}

// The tables may grow by what is read of a function.
std::uint32_t DEBUG_INFORMATION::scope_at(const UNIT& unit, TABLES& tables, std::uint64_t address) {
  const std::size_t bytes = tables.bytes();
  const auto scope = tables.scopes.find(inner_die_of(unit), address);
  m_bytes_of_tables += tables.bytes() - bytes;
  return scope.value_or(SCOPES::none);
}

SOURCE_FUNCTION DEBUG_INFORMATION::function_of(const UNIT& unit, const TABLES& tables,
                                               std::uint32_t number) const {
  const SCOPES::SCOPE& scope = tables.scopes[number];
  const bool is_inlined = scope.outer != SCOPES::none;
  SOURCE_FUNCTION function;
  if (!is_inlined) function.low = scope.low;
  Dwarf_Die root = inner_die_of(unit);
  Dwarf_Die die;
  if (root.cu == nullptr ||
      dwarf_offdie(dwarf_cu_getdwarf(root.cu), dwarf_dieoffset(&root) + scope.die, &die) == nullptr)
    return function;
  if (is_inlined) {
    function.call_file = tables.lines.file_name(number_of(die, DW_AT_call_file));
    function.call_line = number_of(die, DW_AT_call_line);
  }
  char const* name = text_of(die, DW_AT_linkage_name);
  if (name == nullptr) name = text_of(die, DW_AT_MIPS_linkage_name);
  function.is_linker_name = name != nullptr || has_plain_names(root);
  if (name == nullptr) name = text_of(die, DW_AT_name);
  if (name != nullptr) function.name = name;
  return function;
}

}  // namespace symbols
