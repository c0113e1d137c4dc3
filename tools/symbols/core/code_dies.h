// The DIEs of a unit that have code, found without looking at what is between them.
#pragma once

#include <elfutils/libdw.h>

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace symbols {

class BYTE_READER;

/// A function, or one that is inlined.
struct CODE_DIE {
  static constexpr std::uint32_t none = UINT32_MAX;
  Dwarf_Off offset;         ///< in its section
  std::uint32_t outer;      ///< the one it is inlined into, by its number in the list, or `none`
  std::uint64_t low = 0;    ///< where its code begins, and how long it is: either is 0 unless the
  std::uint64_t bytes = 0;  ///< DIE tells it by a plain number
};

/// Most of a unit is declarations, types, parameters and variables. They are passed over by the
/// size that their abbreviations tell, where libdw would look at each attribute for every question.
class CODE_DIES {
 public:
  CODE_DIES() = default;
  /// Reads the abbreviations of a unit. One that is coded as no version up to 5 allows has no DIEs.
  explicit CODE_DIES(Dwarf_Die unit);

  /// In the order of the file; of a damaged one, up to the damage. `unit` is the one that this was
  /// made of, which may be open anew. Those that are inside of no function, and of no type unless
  /// types may hold code:
  std::vector<CODE_DIE> outer_functions(Dwarf_Die unit, bool types_may_hold_code) const;
  /// The DIE at an offset, if it has code, and all inside of it.
  std::vector<CODE_DIE> all_inside(Dwarf_Die unit, Dwarf_Off offset) const;
  std::size_t bytes() const {
    return m_abbreviations.capacity() * sizeof(ABBREVIATION) + m_steps.capacity() * sizeof(STEP);
  }

 private:
  /// How one form is passed over, or several.
  struct STEP {
    enum KIND : std::uint8_t {
      plain,
      number,
      string,
      block,
      counted_block,
      indirect,
      sibling,  // these are of interest
      low,
      length
    };
    KIND kind;
    std::uint32_t size;  // in bytes, of what is plain, or of a block's count
  };
  struct ABBREVIATION {
    enum KIND : std::uint8_t { unknown, other, scope, type, function, inlined };
    KIND kind = unknown;
    bool has_code = false;
    bool has_children = false;
    std::uint32_t first_step = 0;
    std::uint32_t end_of_steps = 0;
  };
  struct PLACES;
  struct TOLD;
  struct UNIT;
  class SEARCH;

  static ABBREVIATION::KIND kind_of(unsigned tag);
  static UNIT unit_of(Dwarf_Die& root);
  void read_abbreviations(Dwarf_Die& root, const UNIT& unit);
  bool add(Dwarf_Abbrev* entry, const UNIT& unit);
  bool add_step(unsigned name, unsigned form, const UNIT& unit, std::uint32_t first_step);
  static STEP::KIND of_interest(unsigned name, unsigned form);
  static std::optional<STEP> step_over(std::uint64_t form, const UNIT& unit);

  std::vector<ABBREVIATION> m_abbreviations;  // by their numbers
  std::vector<STEP> m_steps;
};

}  // namespace symbols
