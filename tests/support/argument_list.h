// Variable arguments chosen at run time.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

/// One argument: an integer, a double or a pointer.
class ARGUMENT {
 public:
  template <class VALUE>
  ARGUMENT(VALUE value) {  // NOLINT(google-explicit-constructor): rows read like calls
    static_assert(sizeof(VALUE) <= sizeof(m_slot) && alignof(VALUE) <= alignof(std::uint64_t));
    std::memcpy(&m_slot, &value, sizeof(VALUE));
  }
  std::uint64_t slot() const { return m_slot; }

 private:
  std::uint64_t m_slot = 0;
};

/// A list of them, to be read as a va_list any number of times.
class ARGUMENT_LIST {
 public:
  ARGUMENT_LIST() = default;
  ARGUMENT_LIST(std::initializer_list<ARGUMENT> arguments) {
    for (const ARGUMENT& argument : arguments) add(argument);
  }
  void add(const ARGUMENT& argument) { m_slots.push_back(argument.slot()); }

  /// Returns call(args).
  template <class CALL>
  auto pass_to(CALL call) const {
    // With all registers used up, every argument is read from the stack area, eight bytes each.
    const AREAS areas{general_registers_size, all_registers_size, m_slots.data(), nullptr};
    va_list args;
    static_assert(sizeof args == sizeof areas);
    std::memcpy(&args, &areas, sizeof args);
    return call(args);
  }

 private:
  /// A va_list as the x86-64 ABI lays it out.
  struct AREAS {
    unsigned general_registers_used;
    unsigned all_registers_used;
    const std::uint64_t* stack;
    const void* registers;
  };
  static constexpr unsigned general_registers_size = 6 * 8;
  static constexpr unsigned all_registers_size = general_registers_size + 8 * 16;

  std::vector<std::uint64_t> m_slots;
};
