// The stacks that a thread has allocated from of late, and their paths.
#pragma once

#include <array>
#include <cstdint>

#include "mem/paths/call_paths.h"
#include "mem/unwind/whole_stack.h"

/// A program comes by the same few stacks again and again. One that is as it was, word for word of
/// those that lead outward, needs no walk. Looked for by where the stack stands and who called the
/// allocator: that one's return address is found without a walk, since between the two there are
/// the frames of a few functions only.
class MEM_KNOWN_STACKS {
 public:
  /// The path of the stack that `first` is the innermost frame of; null when it is not known. Still
  /// to be found good for this epoch by a mouse.
  MEM_CALL_PATH* find(const MEM_UNWIND_FRAME& first, std::uint32_t bin, std::uint32_t epoch);

  /// Remembers the stack walked last, `skip` frames of which are the allocator's.
  void remember(const MEM_WHOLE_STACK& stack, int skip, MEM_CALL_PATH* path, std::uint32_t bin,
                std::uint32_t epoch);

 private:
  static constexpr int most_checks = 56;
  static constexpr int stack_bits = 8;
  static constexpr int function_bits = 3;

  // A word of the stack that leads outward, which is an address: in the low bits, how far it is
  // from the stack pointer, in words.
  class CHECK {
   public:
    static bool fits(std::uintptr_t distance, std::uintptr_t value) {
      return distance / 8 < (1U << distance_bits) && value >> (64 - distance_bits) == 0;
    }
    CHECK() = default;
    CHECK(std::uintptr_t distance, std::uintptr_t value)
        : m_word((value << distance_bits) | (distance / 8)) {}
    bool holds(std::uintptr_t stack_pointer) const {
      constexpr std::uint64_t distance_mask = (1U << distance_bits) - 1;
      const std::uintptr_t slot = stack_pointer + (m_word & distance_mask) * 8;
      return ((mem_load_word(slot) << distance_bits) ^ m_word) <= distance_mask;
    }

   private:
    static constexpr int distance_bits = 16;
    std::uint64_t m_word;
  };

  struct alignas(64) STACK {
    std::uintptr_t stack_pointer = 0;
    std::uintptr_t return_address;
    std::uintptr_t frame_pointer;
    std::uintptr_t stack_end;
    MEM_CALL_PATH* path;
    std::uint64_t candidate;  // digest of the stack that came by last and was not known
    unsigned generation;
    std::uint32_t epoch;
    std::uint32_t bin;
    std::uint8_t count;
    bool needs_frame_pointer;
    std::array<CHECK, most_checks> checks;

    bool holds(const MEM_UNWIND_FRAME& first) const;
    bool fill_checks(const MEM_WHOLE_STACK& whole);
  };
  // A function of the allocator's, by the address it is returned to by what it calls: how far its
  // caller's return address is from the stack pointer.
  struct FUNCTION {
    std::uintptr_t distance = 0;
  };

  FUNCTION& function_of(std::uintptr_t return_address);
  STACK& stack_at(std::uintptr_t stack_pointer, std::uintptr_t caller);

  std::uintptr_t m_distance = 0;  // of that address
  std::array<FUNCTION, 1U << function_bits> m_functions{};
  std::array<STACK, 1U << stack_bits> m_stacks;
};
