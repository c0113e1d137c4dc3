// What the compiler's call frame information says about one return address.
#pragma once

#include <cstdint>

/// How to get from a frame to its caller's. The caller's registers are found from the canonical
/// frame address (CFA), the value of the stack pointer before the call: the return address lies in
/// the 8 bytes below it.
struct MEM_UNWIND_RULE {
  enum KIND : unsigned char {
    FROM_STACK_POINTER,  ///< CFA = stack pointer + cfa_offset
    FROM_FRAME_POINTER,  ///< CFA = frame pointer + cfa_offset
    OUTERMOST,           ///< there is no caller
    UNKNOWN,             ///< no information, or more than these rules can say
  };
  KIND kind = UNKNOWN;
  std::uint64_t cfa_offset = 0;            ///< bytes
  std::uint64_t frame_pointer_offset = 0;  ///< it was saved so many bytes below the CFA; 0: never

  /// The rule at a return address, read from the module's .eh_frame section. Takes no lock and
  /// allocates nothing. Microseconds.
  static MEM_UNWIND_RULE at(std::uintptr_t return_address);
};
