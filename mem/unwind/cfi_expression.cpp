#include "mem/unwind/cfi_expression.h"

#include <array>
#include <cstddef>

#include "mem/unwind/checked_load.h"

namespace {

// DWARF's stack machine. Its operations are those of signal frames, of functions that align their
// stack, and of procedure linkage tables. Once it has failed, the values mean nothing.
class STACK_MACHINE {
 public:
  explicit STACK_MACHINE(const MEM_UNWIND_FRAME& frame) : m_frame(frame) {}

  void push(std::optional<std::uint64_t> value) {
    if (!value || m_count == m_values.size())
      m_has_failed = true;
    else
      m_values[m_count++] = *value;
  }

  std::uint64_t pop() {
    if (m_count == 0) {
      m_has_failed = true;
      return 0;
    }
    return m_values[--m_count];
  }

  void carry_out(unsigned char operation, MEM_CFI_READER& reader) {
    if (operation >= 0x30 && operation <= 0x4F) return push(operation - 0x30U);
    if (operation >= 0x70 && operation <= 0x8F) return push_register(operation - 0x70U, reader);
    if (operation >= 0x08 && operation <= 0x11) return push(constant(operation, reader));
    switch (operation) {
      case 0x06:  // the word at the address
        return push(mem_load_word_checked(pop()));
      case 0x12: {  // the same once more
        const std::uint64_t value = pop();
        push(value);
        return push(value);
      }
      case 0x23:
        return push(pop() + reader.take_uleb128());
      default:
        return push(combined(operation));
    }
  }

  bool has_failed() const { return m_has_failed; }

 private:
  void push_register(std::uint64_t number, MEM_CFI_READER& reader) {
    const auto offset = static_cast<std::uint64_t>(reader.take_sleb128());
    const std::optional<std::uint64_t> value = m_frame.register_at(number);
    if (value)
      push(*value + offset);
    else
      push(std::nullopt);
  }

  static std::uint64_t constant(unsigned char operation, MEM_CFI_READER& reader) {
    switch (operation) {
      case 0x08:
        return reader.take<std::uint8_t>();
      case 0x09:
        return static_cast<std::uint64_t>(reader.take<std::int8_t>());
      case 0x0A:
        return reader.take<std::uint16_t>();
      case 0x0B:
        return static_cast<std::uint64_t>(reader.take<std::int16_t>());
      case 0x0C:
        return reader.take<std::uint32_t>();
      case 0x0D:
        return static_cast<std::uint64_t>(reader.take<std::int32_t>());
      case 0x10:
        return reader.take_uleb128();
      case 0x11:
        return static_cast<std::uint64_t>(reader.take_sleb128());
      default:
        return reader.take<std::uint64_t>();
    }
  }

  std::optional<std::uint64_t> combined(unsigned char operation) {
    const std::uint64_t second = pop();
    const std::uint64_t first = pop();
    switch (operation) {
      case 0x1A:
        return first & second;
      case 0x1C:
        return first - second;
      case 0x22:
        return first + second;
      case 0x24:
        return second < 64 ? first << second : 0;
      case 0x2A:
        return static_cast<std::int64_t>(first) >= static_cast<std::int64_t>(second) ? 1 : 0;
      default:
        return std::nullopt;
    }
  }

  const MEM_UNWIND_FRAME& m_frame;
  std::array<std::uint64_t, 8> m_values{};
  std::size_t m_count = 0;
  bool m_has_failed = false;
};

}  // namespace

std::optional<std::uint64_t> MEM_UNWIND_FRAME::register_at(std::uint64_t number) const {
  switch (number) {
    case 6:
      return frame_pointer;
    case 7:
      return stack_pointer;
    case 16:
      return return_address;
    default:
      return std::nullopt;
  }
}

std::optional<std::uint64_t> mem_evaluate_cfi_expression(MEM_CFI_READER expression,
                                                         const MEM_UNWIND_FRAME& frame,
                                                         std::optional<std::uint64_t> initial) {
  STACK_MACHINE machine(frame);
  if (initial) machine.push(initial);
  while (!expression.is_at_end() && !machine.has_failed())
    machine.carry_out(expression.take<unsigned char>(), expression);
  const std::uint64_t value = machine.pop();
  if (machine.has_failed() || expression.has_failed()) return std::nullopt;
  return value;
}
