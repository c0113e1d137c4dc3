#include "mem/unwind/rule_table.h"

#include <optional>

#include "mem/modules/module_watch.h"
#include "mem/unwind/frame_layout.h"

constinit MEM_RULE_TABLE mem_unwind_rules;

namespace {

using RULE = MEM_UNWIND_RULE;

constexpr std::uintptr_t end_of_addresses = 1UL << (64 - RULE::tag_shift + RULE::place_bits);

bool fits(std::uint64_t offset, int bits) { return offset % 8 == 0 && offset / 8 < (1U << bits); }

// Without the tag.
std::uint64_t word_of(const MEM_FRAME_LAYOUT& layout) {
  using SAVED = MEM_FRAME_LAYOUT::SAVED;
  constexpr std::uint64_t other = std::uint64_t{RULE::OTHER} << RULE::kind_shift;
  if (layout.is_outermost()) return std::uint64_t{RULE::OUTERMOST} << RULE::kind_shift;
  const SAVED& saved = layout.frame_pointer;
  const bool is_plain =
      !layout.is_signal_frame && !layout.cfa_is_expression &&
      layout.return_address.where == SAVED::AT_CFA && layout.return_address.offset == -8 &&
      layout.cfa_offset > 0 &&
      (saved.where == SAVED::UNCHANGED || (saved.where == SAVED::AT_CFA && saved.offset < 0));
  const bool from_stack_pointer = layout.cfa_register == mem_stack_pointer_register;
  if (!is_plain || (!from_stack_pointer && layout.cfa_register != mem_frame_pointer_register))
    return other;
  const auto cfa_offset = static_cast<std::uint64_t>(layout.cfa_offset);
  const std::uint64_t frame_pointer_offset = 0 - static_cast<std::uint64_t>(saved.offset);
  if (!fits(cfa_offset, RULE::cfa_bits) || !fits(frame_pointer_offset, RULE::frame_pointer_bits))
    return other;
  const RULE::KIND kind = from_stack_pointer ? RULE::FROM_STACK_POINTER : RULE::FROM_FRAME_POINTER;
  return (std::uint64_t{kind} << RULE::kind_shift) |
         ((frame_pointer_offset / 8) << RULE::cfa_bits) | (cfa_offset / 8);
}

}  // namespace

std::uintptr_t MEM_RULE_TABLE::address_of(std::size_t index, WORD word) {
  const WORD tag = word >> RULE::tag_shift;
  return (tag << RULE::place_bits) | ((index ^ tag) & (set_count - 1));
}

// The byte before the return address lies in the call: a call may be a function's last instruction.
[[gnu::cold, gnu::noinline]] MEM_RULE_TABLE::WORD MEM_RULE_TABLE::learn(std::uintptr_t address) {
  const unsigned generation = m_generation.load();
  const std::uintptr_t pc = address - 1;
  if (pc >= end_of_addresses - 1) return WORD{RULE::OTHER} << RULE::kind_shift;
  // What lies in no module, or in one too many, is not remembered: nobody would know when to
  // forget it.
  const bool is_watched = mem_watch_module_of(pc);
  const std::optional<MEM_FRAME_LAYOUT> layout = MEM_FRAME_LAYOUT::at(pc);
  const WORD word = (tag_of(address) << RULE::tag_shift) |
                    (layout ? word_of(*layout) : WORD{RULE::OTHER} << RULE::kind_shift);
  if (is_watched) remember(address, word, generation);
  return word;
}

// Never takes a word from one place to another: a word that is forgotten meanwhile stays forgotten.
void MEM_RULE_TABLE::remember(std::uintptr_t address, WORD word, unsigned generation) {
  SET& set = set_of(address);
  PLACE* place = nullptr;
  for (PLACE& candidate : set)
    if (place == nullptr && candidate.load(std::memory_order_relaxed) == 0) place = &candidate;
  if (place == nullptr)
    place = &set[m_next_place.fetch_add(1, std::memory_order_relaxed) % set.size()];
  place->store(word);
  // Either this sees that rules were forgotten since, or whoever forgets sees the word.
  if (m_generation.load() != generation) forget_rule(*place, word);
}

// What is noted beside the rule may change meanwhile.
void MEM_RULE_TABLE::forget_rule(PLACE& place, WORD word) {
  for (WORD found = word; (found | looked_through) == (word | looked_through);)
    if (place.compare_exchange_weak(found, 0)) return;
}

void MEM_RULE_TABLE::note_looked_through(std::uintptr_t return_address) {
  for (PLACE& place : set_of(return_address)) {
    WORD word = place.load(std::memory_order_relaxed);
    if (word >> RULE::tag_shift == tag_of(return_address) && word != 0)
      place.compare_exchange_strong(word, word | looked_through);
  }
  m_noted.store(true, std::memory_order_relaxed);
}

void MEM_RULE_TABLE::forget_looked_through() {
  if (!m_noted.exchange(false, std::memory_order_relaxed)) return;
  m_generation.fetch_add(1);
  for (SET& set : m_sets)
    for (PLACE& place : set)
      if ((place.load(std::memory_order_relaxed) & looked_through) != 0)
        place.fetch_and(~looked_through);
}

void MEM_RULE_TABLE::forget(std::uintptr_t begin, std::uintptr_t end) {
  m_generation.fetch_add(1);
  for (std::size_t index = 0; index < set_count; ++index)
    for (PLACE& place : m_sets[index]) {
      const WORD word = place.load();
      if (word != 0 && address_of(index, word) - 1 - begin < end - begin) forget_rule(place, word);
    }
}
