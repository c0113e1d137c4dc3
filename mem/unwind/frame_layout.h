// What the compiler's call frame information says about a frame, in full.
#pragma once

#include <cstdint>
#include <optional>

#include "mem/unwind/cfi_reader.h"

inline constexpr std::uint64_t mem_frame_pointer_register = 6;
inline constexpr std::uint64_t mem_stack_pointer_register = 7;

/// How to get from a frame to its caller's. The caller's registers are found from the canonical
/// frame address (CFA), the value of the stack pointer before the call.
struct MEM_FRAME_LAYOUT {
  /// Where a register's value in the caller is.
  struct SAVED {
    enum {
      UNCHANGED,
      AT_CFA,
      AT_EXPRESSION,
      IS_EXPRESSION,
      UNDEFINED,
      ELSEWHERE
    } where = UNCHANGED;
    std::int64_t offset = 0;  ///< from the CFA
    MEM_CFI_READER expression;
  };

  std::uint64_t cfa_register = 0;
  std::int64_t cfa_offset = 0;
  bool cfa_is_expression = false;
  MEM_CFI_READER cfa_expression;
  SAVED frame_pointer;
  SAVED return_address;
  bool is_signal_frame = false;  ///< its caller was interrupted: it had made no call

  bool is_outermost() const { return return_address.where == SAVED::UNDEFINED; }

  /// The layout in force at an instruction, read from its module's .eh_frame section. None when
  /// there is no information or it is damaged, or written in a way that compilers don't use. Takes
  /// no lock and allocates nothing. Microseconds.
  static std::optional<MEM_FRAME_LAYOUT> at(std::uintptr_t pc);

  /// The same by the entry of the function that the instruction lies in.
  static std::optional<MEM_FRAME_LAYOUT> in(const struct MEM_CFI_DESCRIPTION& description,
                                            std::uintptr_t pc);
};
