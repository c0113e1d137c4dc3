// The functions of one compilation unit, and what is inlined into them.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "tools/symbols/core/code_dies.h"
#include "tools/symbols/core/range_map.h"

namespace symbols {

class SCOPES {
 public:
  static constexpr std::uint32_t none = UINT32_MAX;

  struct SCOPE {
    std::uint64_t low;    ///< where it begins; 0 when unknown
    std::uint64_t die;    ///< its offset behind the unit's own
    std::uint32_t outer;  ///< the scope that it is inlined into; `none` for a function
  };

  SCOPES() = default;
  /// Those that are inside the DIE of a unit, a split one's own. What is inside of a function is
  /// read when it is asked for: most never are, and most of a unit is inside of functions.
  explicit SCOPES(Dwarf_Die unit);

  /// The innermost scope at an address, as the debug information counts it. `unit` is the one that
  /// this was made of, which may be open anew. Numbers hold until the next question.
  std::optional<std::uint32_t> find(Dwarf_Die unit, std::uint64_t address);
  /// Where there is code of any scope.
  const RANGE_MAP& whole_map(Dwarf_Die unit);
  const SCOPE& operator[](std::uint32_t number) const { return m_scopes[number]; }
  std::size_t bytes() const {
    return m_scopes.capacity() * sizeof(SCOPE) + m_dies.bytes() + m_bytes_of_maps;
  }

 private:
  void read_whole(Dwarf_Die& unit);
  const RANGE_MAP& inside_of(Dwarf_Die& unit, std::uint32_t function);
  void fill(RANGE_MAP& map, Dwarf_Die& unit, std::span<const CODE_DIE> dies);
  std::uint32_t add_scope(RANGE_MAP& map, Dwarf_Die& unit, const CODE_DIE& die,
                          std::uint32_t outer);
  static std::uint64_t add_ranges(RANGE_MAP& map, Dwarf_Die& unit, const CODE_DIE& die,
                                  std::uint32_t number);

  Dwarf_Off m_unit = 0;
  CODE_DIES m_dies;
  bool m_is_whole = false;
  std::vector<SCOPE> m_scopes;
  RANGE_MAP m_map;                                         // of functions
  std::unordered_map<std::uint32_t, RANGE_MAP> m_insides;  // of those asked about
  std::size_t m_bytes_of_maps = 0;
};

}  // namespace symbols
