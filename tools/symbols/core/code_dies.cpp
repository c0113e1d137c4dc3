#include "tools/symbols/core/code_dies.h"

#include <dwarf.h>

#include "tools/symbols/core/byte_reader.h"

namespace symbols {

namespace {

// Compilers count them from 1.
constexpr unsigned highest_abbreviation = 1U << 20;

}  // namespace

struct CODE_DIES::UNIT {
  std::string_view bytes;   // its header too
  std::uint64_t begin = 0;  // in its section
  std::uint64_t root = 0;   // behind the header
  Dwarf_Half version = 0;
  std::uint8_t address_size = 0;
  std::uint8_t offset_size = 0;
};

// Where is looked, beside scopes that are inside of nothing else. What is inlined is inside of
// functions.
struct CODE_DIES::PLACES {
  bool types;
  bool functions;
};

// What a DIE says of itself.
struct CODE_DIES::TOLD {
  std::uint64_t sibling = 0;  // the next DIE behind its children
  std::uint64_t low = 0;
  std::uint64_t length = 0;
};

// One way through the DIEs.
class CODE_DIES::SEARCH {
 public:
  SEARCH(const CODE_DIES& dies, const UNIT& unit, PLACES places)
      : m_dies(dies), m_unit(unit), m_places(places) {}

  // The DIE at the offset behind the unit's begin, and all inside of it.
  std::vector<CODE_DIE> from(std::uint64_t offset) && {
    if (offset >= m_unit.bytes.size()) return {};
    m_reader = BYTE_READER(m_unit.bytes.substr(offset));
    do {
      const std::uint64_t at = position();
      const ABBREVIATION* die = take_abbreviation();
      if (die == nullptr) {
        if (!m_outers.empty()) m_outers.pop_back();
      } else {
        take(*die, at);
      }
    } while (!m_outers.empty() && !m_reader.at_end());
    return std::move(m_found);
  }

 private:
  std::uint64_t position() const { return m_unit.bytes.size() - m_reader.left(); }

  // Null at the end of a DIE's children, or for a number that no abbreviation has.
  const ABBREVIATION* take_abbreviation() {
    const std::uint64_t code = m_reader.take_uleb();
    if (code >= m_dies.m_abbreviations.size()) return nullptr;
    const ABBREVIATION& abbreviation = m_dies.m_abbreviations[code];
    return abbreviation.kind == ABBREVIATION::unknown ? nullptr : &abbreviation;
  }

  void take(const ABBREVIATION& die, std::uint64_t at) {
    const bool is_root = m_outers.empty();
    const TOLD told = pass_over(die);
    const std::uint32_t outer = add_if_wanted(
        die,
        {.offset = m_unit.begin + at,
         .outer = is_root || die.kind == ABBREVIATION::function ? CODE_DIE::none : m_outers.back(),
         .low = told.low,
         .bytes = told.length});
    if (!die.has_children) return;
    if (is_root || is_entered(die.kind)) {
      m_outers.push_back(outer);
    } else {
      pass_over_children(told.sibling);
    }
  }

  // Returns what is around those inside of it.
  std::uint32_t add_if_wanted(const ABBREVIATION& die, const CODE_DIE& found) {
    if (!die.has_code) return found.outer;
    m_found.push_back(found);
    return static_cast<std::uint32_t>(m_found.size() - 1);
  }

  bool is_entered(ABBREVIATION::KIND kind) const {
    switch (kind) {
      case ABBREVIATION::scope:
      case ABBREVIATION::inlined:
        return true;
      case ABBREVIATION::type:
        return m_places.types;
      case ABBREVIATION::function:
        return m_places.functions;
      default:
        return false;
    }
  }

  TOLD pass_over(const ABBREVIATION& die) {
    TOLD told;
    for (std::uint32_t i = die.first_step; i < die.end_of_steps; ++i) {
      const STEP& step = m_dies.m_steps[i];
      switch (step.kind) {
        case STEP::sibling:
          told.sibling = m_reader.take_unsigned(step.size);
          break;
        case STEP::low:
          told.low = m_reader.take_unsigned(step.size);
          break;
        case STEP::length:
          told.length = m_reader.take_unsigned(step.size);
          break;
        default:
          pass_over(step);
      }
    }
    return told;
  }

  void pass_over(const STEP& step) {
    switch (step.kind) {
      default:
        m_reader.take_bytes(step.size);
        return;
      case STEP::number:
        m_reader.take_uleb();
        return;
      case STEP::string:
        m_reader.take_string();
        return;
      case STEP::block:
        m_reader.take_bytes(m_reader.take_unsigned(step.size));
        return;
      case STEP::counted_block:
        m_reader.take_bytes(m_reader.take_uleb());
        return;
      case STEP::indirect:
        pass_over_indirect();
    }
  }

  void pass_over_indirect() {
    const auto step = step_over(m_reader.take_uleb(), m_unit);
    if (step && step->kind != STEP::indirect) {
      pass_over(*step);
    } else {
      m_reader.take_bytes(m_reader.left());  // nobody knows where it ends
    }
  }

  void pass_over_children(std::uint64_t sibling) {
    if (sibling > position()) {  // a damaged file may lead back
      m_reader.take_bytes(sibling - position());
      return;
    }
    std::size_t depth = 1;
    while (depth > 0 && !m_reader.at_end()) {
      const ABBREVIATION* die = take_abbreviation();
      if (die == nullptr) {
        --depth;
      } else {
        pass_over(*die);
        if (die->has_children) ++depth;
      }
    }
  }

  const CODE_DIES& m_dies;
  const UNIT& m_unit;
  PLACES m_places;
  BYTE_READER m_reader{{}};
  std::vector<std::uint32_t> m_outers;  // of those that are open
  std::vector<CODE_DIE> m_found;
};

CODE_DIES::CODE_DIES(Dwarf_Die root) {
  const UNIT unit = unit_of(root);
  if (!unit.bytes.empty()) read_abbreviations(root, unit);
}

std::vector<CODE_DIE> CODE_DIES::outer_functions(Dwarf_Die root, bool types_may_hold_code) const {
  const UNIT unit = unit_of(root);
  return SEARCH(*this, unit, {.types = types_may_hold_code, .functions = false}).from(unit.root);
}

std::vector<CODE_DIE> CODE_DIES::all_inside(Dwarf_Die root, Dwarf_Off offset) const {
  const UNIT unit = unit_of(root);
  return SEARCH(*this, unit, {.types = true, .functions = true}).from(offset - unit.begin);
}

CODE_DIES::UNIT CODE_DIES::unit_of(Dwarf_Die& root) {
  UNIT unit;
  if (root.cu == nullptr) return unit;
  unit.root = dwarf_cuoffset(&root);
  unit.begin = dwarf_dieoffset(&root) - unit.root;
  Dwarf_Off end = 0;
  std::size_t header_size = 0;
  if (dwarf_next_unit(dwarf_cu_getdwarf(root.cu), unit.begin, &end, &header_size, &unit.version,
                      nullptr, &unit.address_size, &unit.offset_size, nullptr, nullptr) == 0 &&
      end > unit.begin + unit.root && end != static_cast<Dwarf_Off>(-1))
    unit.bytes = {static_cast<char const*>(root.addr) - unit.root, end - unit.begin};
  return unit;
}

void CODE_DIES::read_abbreviations(Dwarf_Die& root, const UNIT& unit) {
  std::size_t length = 0;
  for (Dwarf_Off offset = 0;; offset += length) {
    Dwarf_Abbrev* const entry = dwarf_getabbrev(&root, offset, &length);
    if (entry == DWARF_END_ABBREV) return;
    if (entry == nullptr || !add(entry, unit)) {
      m_abbreviations.clear();
      return;
    }
  }
}

bool CODE_DIES::add(Dwarf_Abbrev* entry, const UNIT& unit) {
  const unsigned code = dwarf_getabbrevcode(entry);
  if (code >= highest_abbreviation) return false;
  ABBREVIATION abbreviation{.kind = kind_of(dwarf_getabbrevtag(entry)),
                            .has_children = dwarf_abbrevhaschildren(entry) != 0,
                            .first_step = static_cast<std::uint32_t>(m_steps.size())};
  unsigned name = 0;
  unsigned form = 0;
  // (dwarf_getattrcnt miscounts where there are implicit constants.)
  for (std::size_t i = 0; dwarf_getabbrevattr_data(entry, i, &name, &form, nullptr, nullptr) == 0;
       ++i) {
    if (!add_step(name, form, unit, abbreviation.first_step)) return false;
    abbreviation.has_code |= name == DW_AT_low_pc || name == DW_AT_ranges;
  }
  abbreviation.has_code &=
      abbreviation.kind == ABBREVIATION::function || abbreviation.kind == ABBREVIATION::inlined;
  abbreviation.end_of_steps = static_cast<std::uint32_t>(m_steps.size());
  if (m_abbreviations.size() <= code) m_abbreviations.resize(code + 1);
  m_abbreviations[code] = abbreviation;
  return true;
}

bool CODE_DIES::add_step(unsigned name, unsigned form, const UNIT& unit, std::uint32_t first_step) {
  const std::optional<STEP> step = step_over(form, unit);
  if (!step) return false;
  const STEP::KIND kind = step->kind == STEP::plain ? of_interest(name, form) : step->kind;
  if (kind == STEP::plain && m_steps.size() > first_step && m_steps.back().kind == STEP::plain) {
    m_steps.back().size += step->size;
  } else {
    m_steps.push_back({kind, step->size});
  }
  return true;
}

// A length may be an address too, of the end.
CODE_DIES::STEP::KIND CODE_DIES::of_interest(unsigned name, unsigned form) {
  switch (name) {
    case DW_AT_sibling:
      return STEP::sibling;
    case DW_AT_low_pc:
      return form == DW_FORM_addr ? STEP::low : STEP::plain;
    case DW_AT_high_pc:
      return form == DW_FORM_addr ? STEP::plain : STEP::length;
    default:
      return STEP::plain;
  }
}

CODE_DIES::ABBREVIATION::KIND CODE_DIES::kind_of(unsigned tag) {
  switch (tag) {
    case DW_TAG_subprogram:
      return ABBREVIATION::function;
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_enumeration_type:
    case DW_TAG_interface_type:
      return ABBREVIATION::type;
    case DW_TAG_inlined_subroutine:
      return ABBREVIATION::inlined;
    case DW_TAG_lexical_block:
    case DW_TAG_try_block:
    case DW_TAG_catch_block:
    case DW_TAG_namespace:
    case DW_TAG_module:
    case DW_TAG_with_stmt:
      return ABBREVIATION::scope;
    default:
      return ABBREVIATION::other;
  }
}

std::optional<CODE_DIES::STEP> CODE_DIES::step_over(std::uint64_t form, const UNIT& unit) {
  switch (form) {
    case DW_FORM_flag_present:
    case DW_FORM_implicit_const:
      return STEP{STEP::plain, 0};
    case DW_FORM_data1:
    case DW_FORM_ref1:
    case DW_FORM_flag:
    case DW_FORM_strx1:
    case DW_FORM_addrx1:
      return STEP{STEP::plain, 1};
    case DW_FORM_data2:
    case DW_FORM_ref2:
    case DW_FORM_strx2:
    case DW_FORM_addrx2:
      return STEP{STEP::plain, 2};
    case DW_FORM_strx3:
    case DW_FORM_addrx3:
      return STEP{STEP::plain, 3};
    case DW_FORM_data4:
    case DW_FORM_ref4:
    case DW_FORM_strx4:
    case DW_FORM_addrx4:
    case DW_FORM_ref_sup4:
      return STEP{STEP::plain, 4};
    case DW_FORM_data8:
    case DW_FORM_ref8:
    case DW_FORM_ref_sig8:
    case DW_FORM_ref_sup8:
      return STEP{STEP::plain, 8};
    case DW_FORM_data16:
      return STEP{STEP::plain, 16};
    case DW_FORM_addr:
      return STEP{STEP::plain, unit.address_size};
    case DW_FORM_ref_addr:
      return STEP{STEP::plain, unit.version == 2 ? unit.address_size : unit.offset_size};
    case DW_FORM_strp:
    case DW_FORM_line_strp:
    case DW_FORM_strp_sup:
    case DW_FORM_sec_offset:
    case DW_FORM_GNU_ref_alt:
    case DW_FORM_GNU_strp_alt:
      return STEP{STEP::plain, unit.offset_size};
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_ref_udata:
    case DW_FORM_strx:
    case DW_FORM_addrx:
    case DW_FORM_loclistx:
    case DW_FORM_rnglistx:
    case DW_FORM_GNU_addr_index:
    case DW_FORM_GNU_str_index:
      return STEP{STEP::number, 0};
    case DW_FORM_string:
      return STEP{STEP::string, 0};
    case DW_FORM_exprloc:
    case DW_FORM_block:
      return STEP{STEP::counted_block, 0};
    case DW_FORM_block1:
      return STEP{STEP::block, 1};
    case DW_FORM_block2:
      return STEP{STEP::block, 2};
    case DW_FORM_block4:
      return STEP{STEP::block, 4};
    default:
      return std::nullopt;
  }
}

}  // namespace symbols
