#include "mem/paths/known_stacks.h"

#include "mem/unwind/checked_load.h"
#include "mem/unwind/rule_table.h"
#include "mem/unwind/stack_bounds.h"

namespace {

constexpr std::uint64_t factor = 0x9E3779B97F4A7C15ULL;

}  // namespace

MEM_KNOWN_STACKS::FUNCTION& MEM_KNOWN_STACKS::function_of(std::uintptr_t return_address) {
  return m_functions[(return_address * factor) >> 61];
}

MEM_KNOWN_STACKS::STACK& MEM_KNOWN_STACKS::stack_at(std::uintptr_t stack_pointer,
                                                    std::uintptr_t caller) {
  return m_stacks[((stack_pointer ^ (caller << 20)) * factor) >> 58];
}

MEM_CALL_PATH* MEM_KNOWN_STACKS::find(const MEM_UNWIND_FRAME& first, std::uint32_t bin,
                                      std::uint32_t epoch) {
  const MEM_OWN_STACK& own = mem_own_stack;
  const std::uintptr_t stack_pointer = first.stack_pointer;
  if (stack_pointer - own.low >= own.high - own.low || m_distance >= own.high - stack_pointer)
    return nullptr;
  const FUNCTION& function = function_of(mem_load_word(stack_pointer + m_distance));
  if (function.distance >= own.high - stack_pointer) return nullptr;
  const STACK& stack = stack_at(stack_pointer, mem_load_word(stack_pointer + function.distance));
  if (stack.stack_pointer != stack_pointer || stack.return_address != first.return_address ||
      stack.epoch != epoch || stack.generation != mem_unwind_rules.generation() ||
      stack.bin != bin || stack.stack_end != own.high ||
      (stack.needs_frame_pointer && stack.frame_pointer != first.frame_pointer))
    return nullptr;
  for (int check = 0; check < stack.count; ++check)
    if (!stack.checks[check].holds()) return nullptr;
  return stack.path;
}

void MEM_KNOWN_STACKS::remember(const MEM_WHOLE_STACK& whole, int skip, MEM_CALL_PATH* path,
                                std::uint32_t bin, std::uint32_t epoch) {
  const int innermost = whole.count() - 1;
  if (skip < 1 || innermost < skip || !whole.is_told_by_checks()) return;
  const std::uintptr_t stack_pointer = whole.stack_pointer(innermost);
  m_distance = whole.stack_pointer(innermost + 1 - skip) - 8 - stack_pointer;
  const std::uintptr_t distance = whole.stack_pointer(innermost - skip) - 8 - stack_pointer;
  const std::uintptr_t called_by = whole.behind_call(innermost + 1 - skip);
  function_of(called_by) = {called_by, distance};
  STACK& stack = stack_at(stack_pointer, whole.behind_call(innermost - skip));
  stack.stack_pointer = 0;
  stack.count = whole.checks(stack.checks.data(), most_checks);
  if (stack.count == 0) return;
  stack.return_address = whole.behind_call(innermost);
  stack.frame_pointer = whole.frame_pointer();
  stack.needs_frame_pointer = whole.needs_frame_pointer();
  stack.stack_end = whole.stack_end();
  stack.path = path;
  stack.generation = whole.generation();
  stack.epoch = epoch;
  stack.bin = bin;
  stack.stack_pointer = stack_pointer;
}
