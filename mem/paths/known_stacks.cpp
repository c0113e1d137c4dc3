#include "mem/paths/known_stacks.h"

#include <atomic>
#include <utility>

#include "mem/unwind/checked_load.h"
#include "mem/unwind/rule_table.h"
#include "mem/unwind/stack_bounds.h"

namespace {

constexpr std::uint64_t factor = 0x9E3779B97F4A7C15ULL;

}  // namespace

bool MEM_KNOWN_STACKS::STACK::holds(const MEM_UNWIND_FRAME& first) const {
  if (needs_frame_pointer && frame_pointer != first.frame_pointer) return false;
  for (int check = 0; check < count; ++check)
    if (!checks[static_cast<std::size_t>(check)].holds(first.stack_pointer)) return false;
  return true;
}

// Whether they suffice.
bool MEM_KNOWN_STACKS::STACK::fill_checks(const MEM_WHOLE_STACK& whole) {
  const std::uintptr_t from = whole.stack_pointer(whole.count() - 1);
  bool suffices = true;
  count = 0;
  whole.for_each_check([&](const MEM_WHOLE_STACK::CHECK& check) {
    suffices = suffices && count < most_checks && CHECK::fits(check.slot - from, check.value);
    if (suffices) checks[count++] = CHECK(check.slot - from, check.value);
  });
  return suffices;
}

MEM_KNOWN_STACKS::FUNCTION& MEM_KNOWN_STACKS::function_of(std::uintptr_t return_address) {
  return m_functions[(return_address * factor) >> (64 - function_bits)];
}

MEM_KNOWN_STACKS::STACK& MEM_KNOWN_STACKS::stack_at(std::uintptr_t stack_pointer,
                                                    std::uintptr_t caller) {
  return m_stacks[((stack_pointer ^ (caller << 20)) * factor) >> (64 - stack_bits)];
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
  // Its lines of cache, as most stacks need them, are asked for before the first is there.
  for (std::size_t line = 1; line < sizeof stack / 64 / 2; ++line)
    __builtin_prefetch(reinterpret_cast<char const*>(&stack) + 64 * line);
  if (stack.stack_pointer != stack_pointer || stack.return_address != first.return_address ||
      stack.epoch != epoch || stack.generation != mem_unwind_rules.generation() ||
      stack.bin != bin || stack.stack_end != own.high || !stack.holds(first))
    return nullptr;
  return stack.path;
}

void MEM_KNOWN_STACKS::remember(const MEM_WHOLE_STACK& whole, int skip, MEM_CALL_PATH* path,
                                std::uint32_t bin, std::uint32_t epoch) {
  const int innermost = whole.count() - 1;
  if (skip < 1 || innermost < skip || !whole.is_told_by_checks()) return;
  const std::uintptr_t stack_pointer = whole.stack_pointer(innermost);
  const std::uintptr_t called_by = whole.behind_call(innermost + 1 - skip);
  m_distance = whole.stack_pointer(innermost + 1 - skip) - 8 - stack_pointer;
  function_of(called_by) = {whole.stack_pointer(innermost - skip) - 8 - stack_pointer};
  STACK& stack = stack_at(stack_pointer, whole.behind_call(innermost - skip));
  const std::uint64_t digest = whole.digest(0, innermost) ^ stack_pointer;
  if (std::exchange(stack.candidate, digest) != digest) return;
  stack.stack_pointer = 0;  // nothing, where the thread is broken off
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (!stack.fill_checks(whole)) return;
  stack.return_address = whole.behind_call(innermost);
  stack.frame_pointer = whole.frame_pointer();
  stack.needs_frame_pointer = whole.needs_frame_pointer();
  stack.stack_end = whole.stack_end();
  stack.path = path;
  stack.generation = whole.generation();
  stack.epoch = epoch;
  stack.bin = bin;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  stack.stack_pointer = stack_pointer;
}
