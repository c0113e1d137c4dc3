// A file's debug information, of which only what is asked for is kept.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/symbols/core/line_table.h"
#include "tools/symbols/core/range_map.h"
#include "tools/symbols/core/scopes.h"

namespace symbols {

/// A function as its debug information tells it.
struct SOURCE_FUNCTION {
  std::string name;             ///< as the linker knows it, or else as the source does
  bool is_linker_name = false;  ///< there is no better one in the symbol table
  std::uint64_t low = 0;        ///< 0 when it is inlined
  std::string call_file;        ///< where it is inlined
  std::uint32_t call_line = 0;
};

struct SOURCE {
  std::string file;  ///< of the innermost function
  std::uint32_t line = 0;
  std::vector<SOURCE_FUNCTION> functions;  ///< innermost first
};

/// libdw gives nothing back of what it has read, until the whole is closed. So units are turned
/// into tables of our own, of which those used last are kept, and libdw is begun anew when it has
/// grown. In the file's own addresses.
class DEBUG_INFORMATION {
 public:
  /// The file that somebody else has opened, and keeps open; with the one it shares with others.
  DEBUG_INFORMATION(Elf* file, Dwarf* shared);
  ~DEBUG_INFORMATION() { dwarf_end(m_dwarf); }
  DEBUG_INFORMATION(const DEBUG_INFORMATION&) = delete;
  DEBUG_INFORMATION& operator=(const DEBUG_INFORMATION&) = delete;

  /// Empty for an address that belongs to no unit and has no line.
  std::optional<SOURCE> find(std::uint64_t address);

 private:
  struct TABLES {
    SCOPES scopes;
    LINE_TABLE lines;
    std::uint64_t last_use = 0;
    std::size_t bytes() const { return sizeof *this + scopes.bytes() + lines.bytes(); }
  };
  struct UNIT {
    Dwarf_Off die;
    std::unique_ptr<TABLES> tables;
  };

  void begin();
  void begin_anew_when_grown();
  void index_units();
  void index_hidden_ranges();
  void index_table_of_ranges();
  std::optional<std::uint32_t> unit_at(std::uint64_t address);
  std::optional<SOURCE> line_outside_of_units(std::uint64_t address);
  TABLES& tables_of(UNIT& unit);
  std::uint32_t scope_at(const UNIT& unit, TABLES& tables, std::uint64_t address);
  std::unique_ptr<TABLES> read(const UNIT& unit) const;
  void drop_oldest_tables();
  Dwarf_Die die_of(const UNIT& unit) const;
  Dwarf_Die inner_die_of(const UNIT& unit) const;
  SOURCE_FUNCTION function_of(const UNIT& unit, const TABLES& tables, std::uint32_t scope) const;

  Elf* m_file;
  Dwarf* m_shared;
  Dwarf* m_dwarf = nullptr;
  std::size_t m_heap_at_begin = 0;
  LINE_SECTIONS m_sections;
  std::vector<UNIT> m_units;
  RANGE_MAP m_index;                            // addresses to units
  std::vector<std::uint32_t> m_without_ranges;  // that do not say where their code is
  RANGE_MAP m_hidden_index;
  bool m_has_hidden_index = false;
  std::size_t m_bytes_of_tables = 0;
  std::uint64_t m_uses = 0;
};

}  // namespace symbols
