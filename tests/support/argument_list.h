// Variable arguments chosen at run time.
#pragma once

#include <bit>
#include <concepts>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

/// One argument. Converts by itself, so that rows of a table read like calls.
class ARGUMENT {
 public:
  template <std::integral NUMBER>
  ARGUMENT(NUMBER value) : m_slot(static_cast<std::uint64_t>(value)) {}
  ARGUMENT(double value) : m_slot(std::bit_cast<std::uint64_t>(value)) {}
  ARGUMENT(const void* value) : m_slot(reinterpret_cast<std::uintptr_t>(value)) {}
  operator std::uint64_t() const { return m_slot; }

 private:
  std::uint64_t m_slot;
};

/// A list of them, to be read as a va_list any number of times.
class ARGUMENT_LIST {
 public:
  ARGUMENT_LIST() = default;
  ARGUMENT_LIST(std::initializer_list<ARGUMENT> arguments)
      : m_slots(arguments.begin(), arguments.end()) {}
  void add(const ARGUMENT& argument) { m_slots.push_back(argument); }

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
