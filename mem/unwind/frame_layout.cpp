#include "mem/unwind/frame_layout.h"

#include <array>
#include <cstddef>

#include "mem/unwind/cfi_entry.h"
#include "mem/unwind/cfi_reader.h"

namespace {

// Carries out DWARF's call frame instructions, as far as they concern the CFA, the frame pointer
// and the return address. Nothing is guessed.
class FRAME_MACHINE {
 public:
  FRAME_MACHINE(const MEM_CFI_DESCRIPTION& description, std::uint64_t pc)
      : m_common(description.common), m_pc(pc), m_location(description.function) {}

  std::optional<MEM_FRAME_LAYOUT> layout(const MEM_CFI_DESCRIPTION& description) {
    if (!run(m_common.instructions)) return std::nullopt;
    m_first = m_row;
    if (!run(description.instructions)) return std::nullopt;
    m_row.is_signal_frame = m_common.is_signal_frame;
    return m_row;
  }

 private:
  using ROW = MEM_FRAME_LAYOUT;
  using SAVED = MEM_FRAME_LAYOUT::SAVED;

  // Up to the end, or to the row that is in force at the wanted address. False at an instruction
  // that is not known here.
  bool run(MEM_CFI_READER reader) {
    while (!reader.is_at_end() && m_location <= m_pc)
      if (!carry_out(reader.take<unsigned char>(), reader)) return false;
    return !reader.has_failed();
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
    m_row.cfa_is_expression = instruction == 0x0F;
    if (m_row.cfa_is_expression) {
      m_row.cfa_expression = take_expression(reader);
      return true;
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
        return set(which, {SAVED::UNDEFINED, 0, {}});
      case 0x08:
        return set(which, {});
      case 0x09:  // in another register
        reader.take_uleb128();
        return set(which, {SAVED::ELSEWHERE, 0, {}});
      case 0x10:
        return set(which, {SAVED::AT_EXPRESSION, 0, take_expression(reader)});
      case 0x16:
        return set(which, {SAVED::IS_EXPRESSION, 0, take_expression(reader)});
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

  static MEM_CFI_READER take_expression(MEM_CFI_READER& reader) {
    return reader.take_stretch(reader.take_uleb128());
  }

  bool set(std::uint64_t which, const SAVED& saved) {
    if (which == mem_frame_pointer_register) m_row.frame_pointer = saved;
    if (which == mem_return_address_column) m_row.return_address = saved;
    return true;
  }
  bool save(std::uint64_t which, std::int64_t factored_offset) {
    const std::uint64_t offset = static_cast<std::uint64_t>(factored_offset) *
                                 static_cast<std::uint64_t>(m_common.data_alignment);
    return set(which, {SAVED::AT_CFA, static_cast<std::int64_t>(offset), {}});
  }
  bool restore(std::uint64_t which) {
    if (which == mem_frame_pointer_register) m_row.frame_pointer = m_first.frame_pointer;
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

std::optional<MEM_FRAME_LAYOUT> MEM_FRAME_LAYOUT::at(std::uintptr_t pc) {
  MEM_CFI_DESCRIPTION description;
  if (!description.find(pc)) return std::nullopt;
  return in(description, pc);
}

std::optional<MEM_FRAME_LAYOUT> MEM_FRAME_LAYOUT::in(const MEM_CFI_DESCRIPTION& description,
                                                     std::uintptr_t pc) {
  return FRAME_MACHINE(description, pc).layout(description);
}
