// The functions of one compilation unit, and what is inlined into them.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/symbols/core/range_map.h"

namespace symbols {

class SCOPES {
 public:
  static constexpr std::uint32_t none = UINT32_MAX;

  struct SCOPE {
    std::uint64_t low;        ///< where it begins; 0 when unknown
    std::uint64_t die;        ///< its offset behind the unit's own
    std::uint32_t outer;      ///< the scope that it is inlined into; `none` for a function
    std::uint32_t call_file;  ///< where it is inlined, as its unit's line table counts
    std::uint32_t call_line;
  };

  SCOPES() = default;
  /// Those that are inside the DIE of a unit, a split one's own.
  explicit SCOPES(Dwarf_Die unit);

  /// The innermost scope at an address, as the debug information counts it.
  std::optional<std::uint32_t> find(std::uint64_t address) const { return m_map.find(address); }
  const RANGE_MAP& map() const { return m_map; }
  const SCOPE& operator[](std::uint32_t number) const { return m_scopes[number]; }
  std::size_t bytes() const { return m_scopes.capacity() * sizeof(SCOPE) + m_map.bytes(); }

 private:
  struct PLACE {
    std::uint32_t outer;  // the innermost scope around
    int depth;
    bool is_function;  // inside of one, be it with code or without
  };
  void add_children(Dwarf_Die& parent, PLACE place);
  void add(Dwarf_Die& die, PLACE place);
  std::uint32_t add_scope(Dwarf_Die& die, std::uint32_t outer);

  Dwarf_Off m_unit = 0;
  bool m_types_may_hold_code = false;
  std::vector<SCOPE> m_scopes;
  RANGE_MAP m_map;
};

}  // namespace symbols
