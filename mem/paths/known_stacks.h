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
  static constexpr int stacks = 64;
  static constexpr int functions = 8;

  struct STACK {
    std::uintptr_t stack_pointer = 0;
    std::uintptr_t return_address;
    std::uintptr_t frame_pointer;
    bool needs_frame_pointer;
    std::uintptr_t stack_end;
    MEM_CALL_PATH* path;
    unsigned generation;
    std::uint32_t epoch;
    std::uint32_t bin;
    int count;
    std::array<MEM_WHOLE_STACK::CHECK, most_checks> checks;
  };
  // How far the return address of its caller is from the stack pointer, of a function of the
  // allocator's that is known by the address it is returned to by the hook's caller.
  struct FUNCTION {
    std::uintptr_t return_address = 0;
    std::uintptr_t distance = 0;
  };

  FUNCTION& function_of(std::uintptr_t return_address);
  STACK& stack_at(std::uintptr_t stack_pointer, std::uintptr_t caller);

  std::uintptr_t m_distance = 0;  // of that address
  std::array<FUNCTION, functions> m_functions{};
  std::array<STACK, stacks> m_stacks;
};
