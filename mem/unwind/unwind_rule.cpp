#include "mem/unwind/unwind_rule.h"

#include <array>
#include <cstddef>

#include "mem/unwind/cfi_entry.h"
#include "mem/unwind/cfi_reader.h"

namespace {

constexpr std::uint64_t frame_pointer = 6;
constexpr std::uint64_t stack_pointer = 7;

// Carries out DWARF's call frame instructions, as far as they concern the CFA, the frame pointer
// and the return address. What compilers do not write for ordinary functions makes a rule UNKNOWN:
// nothing is guessed.
class FRAME_MACHINE {
 public:
  FRAME_MACHINE(const MEM_CFI_DESCRIPTION& description, std::uint64_t pc)
      : m_common(description.common), m_pc(pc), m_location(description.function) {}

  MEM_UNWIND_RULE rule(const MEM_CFI_DESCRIPTION& description) {
    if (!run(m_common.begin, m_common.end)) return {};
    m_first = m_row;
    if (!run(description.begin, description.end)) return {};
    return rule_of(m_row);
  }

 private:
  // Where a register's value in the caller is.
  struct SAVED {
    enum { UNCHANGED, BELOW_CFA, UNDEFINED, ELSEWHERE } where = UNCHANGED;
    std::int64_t offset = 0;  // from the CFA
  };
  struct ROW {
    std::uint64_t cfa_register = 0;  // 0: computed by an expression
    std::int64_t cfa_offset = 0;
    SAVED frame_pointer;
    SAVED return_address;
  };

  static MEM_UNWIND_RULE rule_of(const ROW& row) {
    if (row.return_address.where == SAVED::UNDEFINED) return {.kind = MEM_UNWIND_RULE::OUTERMOST};
    const SAVED& saved = row.frame_pointer;
    const bool plain =
        row.return_address.where == SAVED::BELOW_CFA && row.return_address.offset == -8 &&
        row.cfa_offset > 0 &&
        (saved.where == SAVED::UNCHANGED || (saved.where == SAVED::BELOW_CFA && saved.offset < 0));
    if (!plain || (row.cfa_register != stack_pointer && row.cfa_register != frame_pointer))
      return {};
    return {.kind = row.cfa_register == stack_pointer ? MEM_UNWIND_RULE::FROM_STACK_POINTER
                                                      : MEM_UNWIND_RULE::FROM_FRAME_POINTER,
            .cfa_offset = static_cast<std::uint64_t>(row.cfa_offset),
            .frame_pointer_offset = static_cast<std::uint64_t>(-saved.offset)};
  }

  // Up to the end, or to the row that is in force at the wanted address. False at an instruction
  // that is not known here.
  bool run(unsigned char const* begin, unsigned char const* end) {
    MEM_CFI_READER reader(begin);
    while (reader.at() < end && m_location <= m_pc)
      if (!carry_out(reader.take<unsigned char>(), reader)) return false;
    return true;
  }

  bool carry_out(unsigned char instruction, MEM_CFI_READER& reader) {
    const std::uint64_t operand = instruction & 0x3F;
    switch (instruction & 0xC0) {
      case 0x40:
        return advance(operand);
      case 0x80:
        return save(operand, static_cast<std::int64_t>(reader.take_uleb128()));
      case 0xC0:
        return restore(operand);
      default:
        return instruction <= 0x04                          ? move_on(instruction, reader)
               : instruction >= 0x0C && instruction <= 0x0F ? define_cfa(instruction, reader)
                                                            : define_register(instruction, reader);
    }
  }

  bool move_on(unsigned char instruction, MEM_CFI_READER& reader) {
    switch (instruction) {
      case 0x00:  // nop
        return true;
      case 0x02:
        return advance(reader.take<std::uint8_t>());
      case 0x03:
        return advance(reader.take<std::uint16_t>());
      case 0x04:
        return advance(reader.take<std::uint32_t>());
      default:
        return false;
    }
  }

  bool define_cfa(unsigned char instruction, MEM_CFI_READER& reader) {
    if (instruction == 0x0F) {  // by an expression
      m_row.cfa_register = 0;
      return skip_expression(reader);
    }
    if (instruction != 0x0E) m_row.cfa_register = reader.take_uleb128();
    if (instruction != 0x0D) m_row.cfa_offset = static_cast<std::int64_t>(reader.take_uleb128());
    return true;
  }

  bool define_register(unsigned char instruction, MEM_CFI_READER& reader) {
    switch (instruction) {
      case 0x0A:  // remember all
        if (m_remembered == m_stack.size()) return false;
        m_stack[m_remembered++] = m_row;
        return true;
      case 0x0B:  // restore all
        if (m_remembered == 0) return false;
        m_row = m_stack[--m_remembered];
        return true;
      case 0x2E:  // the size of the arguments of a call
        reader.take_uleb128();
        return true;
    }
    const std::uint64_t which = reader.take_uleb128();
    switch (instruction) {
      case 0x05:
        return save(which, static_cast<std::int64_t>(reader.take_uleb128()));
      case 0x06:
        return restore(which);
      case 0x07:
        return set(which, {.where = SAVED::UNDEFINED});
      case 0x08:
        return set(which, {.where = SAVED::UNCHANGED});
      case 0x09:  // in another register
        reader.take_uleb128();
        return set(which, {.where = SAVED::ELSEWHERE});
      case 0x10:  // where an expression says, or what it says
      case 0x16:
        return skip_expression(reader) && set(which, {.where = SAVED::ELSEWHERE});
      case 0x11:
        return save(which, reader.take_sleb128());
      default:
        return false;
    }
  }

  bool advance(std::uint64_t steps) {
    m_location += steps * m_common.code_alignment;
    return true;
  }

  static bool skip_expression(MEM_CFI_READER& reader) {
    const std::uint64_t length = reader.take_uleb128();
    reader.skip(length);
    return true;
  }

  bool set(std::uint64_t which, const SAVED& saved) {
    if (which == frame_pointer) m_row.frame_pointer = saved;
    if (which == mem_return_address_column) m_row.return_address = saved;
    return true;
  }
  bool save(std::uint64_t which, std::int64_t factored_offset) {
    return set(which, {SAVED::BELOW_CFA, factored_offset * m_common.data_alignment});
  }
  bool restore(std::uint64_t which) {
    if (which == frame_pointer) m_row.frame_pointer = m_first.frame_pointer;
    if (which == mem_return_address_column) m_row.return_address = m_first.return_address;
    return true;
  }

  const MEM_CFI_COMMON& m_common;
  const std::uint64_t m_pc;
  std::uint64_t m_location;
  ROW m_row;
  ROW m_first;  // after the common instructions: what "restore" goes back to
  std::array<ROW, 8> m_stack;
  std::size_t m_remembered = 0;
};

}  // namespace

// The byte before the return address lies in the call: a call may be a function's last instruction.
MEM_UNWIND_RULE MEM_UNWIND_RULE::at(std::uintptr_t return_address) {
  const std::uint64_t pc = return_address - 1;
  MEM_CFI_DESCRIPTION description;
  if (!description.find(pc)) return {};
  return FRAME_MACHINE(description, pc).rule(description);
}
