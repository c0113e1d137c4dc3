#include "mem/unwind/careful_step.h"

#include <optional>

#include "mem/unwind/checked_load.h"
#include "mem/unwind/frame_layout.h"
#include "mem/unwind/stack_bounds.h"

namespace {

using VALUE = std::optional<std::uint64_t>;

VALUE cfa_of(const MEM_FRAME_LAYOUT& layout, const MEM_UNWIND_FRAME& frame) {
  if (layout.cfa_is_expression)
    return mem_evaluate_cfi_expression(layout.cfa_expression, frame, std::nullopt);
  const VALUE base = frame.register_at(layout.cfa_register);
  if (!base) return std::nullopt;
  return *base + static_cast<std::uint64_t>(layout.cfa_offset);
}

VALUE value_of(const MEM_FRAME_LAYOUT::SAVED& saved, const MEM_UNWIND_FRAME& frame,
               std::uint64_t cfa, VALUE unchanged) {
  using SAVED = MEM_FRAME_LAYOUT::SAVED;
  switch (saved.where) {
    case SAVED::UNCHANGED:
      return unchanged;
    case SAVED::AT_CFA:
      return mem_load_word_checked(cfa + static_cast<std::uint64_t>(saved.offset));
    case SAVED::IS_EXPRESSION:
      return mem_evaluate_cfi_expression(saved.expression, frame, cfa);
    case SAVED::AT_EXPRESSION: {
      const VALUE address = mem_evaluate_cfi_expression(saved.expression, frame, cfa);
      return address ? mem_load_word_checked(*address) : std::nullopt;
    }
    default:
      return std::nullopt;
  }
}

// Whether the caller's frame lies where one can be: further up the same stack, or, of what a signal
// has interrupted, on any stack.
bool find_stack_of_caller(MEM_WALK_POSITION& position, std::uint64_t cfa, bool is_signal_frame) {
  if (is_signal_frame) {
    if (!mem_is_readable(cfa, sizeof cfa)) return false;
    position.stack_end = mem_stack_end(cfa);
    return true;
  }
  if (cfa <= position.frame.stack_pointer) return false;
  if (cfa > position.stack_end) position.stack_end = mem_extend_stack_end(position.stack_end, cfa);
  return cfa <= position.stack_end;
}

}  // namespace

bool mem_leave_frame(const MEM_FRAME_LAYOUT& layout, MEM_WALK_POSITION& position) {
  if (layout.is_outermost()) return false;
  const MEM_UNWIND_FRAME& frame = position.frame;
  const VALUE cfa = cfa_of(layout, frame);
  if (!cfa) return false;
  const VALUE return_address = value_of(layout.return_address, frame, *cfa, std::nullopt);
  const VALUE frame_pointer = value_of(layout.frame_pointer, frame, *cfa, frame.frame_pointer);
  if (!return_address || !frame_pointer ||
      !find_stack_of_caller(position, *cfa, layout.is_signal_frame))
    return false;
  position.frame = {*return_address, *cfa, *frame_pointer};
  position.is_interrupted = layout.is_signal_frame;
  return true;
}

bool mem_step_carefully(MEM_WALK_POSITION& position) {
  const std::optional<MEM_FRAME_LAYOUT> layout =
      MEM_FRAME_LAYOUT::at(position.address_behind_call() - 1);
  return layout && mem_leave_frame(*layout, position);
}
