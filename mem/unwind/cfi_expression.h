// The expressions of call frame information.
#pragma once

#include <cstdint>
#include <optional>

#include "mem/unwind/cfi_reader.h"

/// A frame's registers, as they were when it made its call. The other ones are not known.
struct MEM_UNWIND_FRAME {
  std::uintptr_t return_address;  ///< of the call: where the frame goes on
  std::uintptr_t stack_pointer;
  std::uintptr_t frame_pointer;

  /// By the numbers of the x86-64 ABI; none for a register that is not known.
  std::optional<std::uint64_t> register_at(std::uint64_t number) const;
};

/// The value of an expression, with `initial` on its stack where the rule says so. None when it
/// needs a register that is not known or memory that can't be read, or is one that this
/// library has not met: neither compilers nor the C library write it.
std::optional<std::uint64_t> mem_evaluate_cfi_expression(MEM_CFI_READER expression,
                                                         const MEM_UNWIND_FRAME& frame,
                                                         std::optional<std::uint64_t> initial);
