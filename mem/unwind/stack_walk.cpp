#include "mem/unwind/stack_walk.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "mem/unwind/unwind_rule.h"

namespace {

// A return address and its rule in one word, so that threads share the table without a lock:
//
//   63       31 30   29 28                   16 15          0
//   [   tag    ][ kind ][ frame pointer offset ][ CFA offset ]
//
// The tag is the address without its low 14 bits, of which the place in the table tells the rest.
// Offsets are in units of 8 bytes. A word of zeros is an empty place: its rule leads nowhere.
using WORD = std::uint64_t;
constexpr int set_bits = 14;
constexpr int cfa_bits = 16;
constexpr int frame_pointer_bits = 13;
constexpr int kind_shift = cfa_bits + frame_pointer_bits;
constexpr int tag_shift = kind_shift + 2;
constexpr std::uintptr_t end_of_addresses = 1UL << (64 - tag_shift + set_bits);

constexpr std::size_t ways = 4;
using SET = std::array<std::atomic<WORD>, ways>;
alignas(64) constinit std::array<SET, 1U << set_bits> remembered_rules{};

// A frame that seems larger is a damaged one.
constexpr std::uintptr_t largest_frame = 1U << 20;

MEM_UNWIND_RULE::KIND kind_of(WORD word) {
  return static_cast<MEM_UNWIND_RULE::KIND>((word >> kind_shift) & 3);
}
std::uintptr_t cfa_offset_of(WORD word) { return (word & ((1U << cfa_bits) - 1)) * 8; }
std::uintptr_t frame_pointer_offset_of(WORD word) {
  return ((word >> cfa_bits) & ((1U << frame_pointer_bits) - 1)) * 8;
}

WORD tag_of(std::uintptr_t address) { return address >> set_bits; }

SET& set_of(std::uintptr_t address) {
  return remembered_rules[(address ^ (address >> set_bits)) & ((1U << set_bits) - 1)];
}

bool fits(std::uint64_t offset, int bits) { return offset % 8 == 0 && offset / 8 < (1U << bits); }

WORD word_of(std::uintptr_t address, MEM_UNWIND_RULE rule) {
  if (!fits(rule.cfa_offset, cfa_bits) || !fits(rule.frame_pointer_offset, frame_pointer_bits))
    rule = {};
  return (tag_of(address) << tag_shift) | (WORD{rule.kind} << kind_shift) |
         ((rule.frame_pointer_offset / 8) << cfa_bits) | (rule.cfa_offset / 8);
}

// The newest comes first, the oldest falls out. Threads may mix their words: each is whole.
[[gnu::cold, gnu::noinline]] WORD learn(std::uintptr_t address) {
  if (address >= end_of_addresses) return word_of(0, {});
  const WORD word = word_of(address, MEM_UNWIND_RULE::at(address));
  SET& set = set_of(address);
  for (std::size_t way = ways - 1; way > 0; --way)
    set[way].store(set[way - 1].load(std::memory_order_relaxed), std::memory_order_relaxed);
  set[0].store(word, std::memory_order_relaxed);
  return word;
}

WORD rule_at(std::uintptr_t address) {
  const WORD tag = tag_of(address);
  for (const std::atomic<WORD>& way : set_of(address)) {
    const WORD word = way.load(std::memory_order_relaxed);
    if (word >> tag_shift == tag) [[likely]]
      return word;
  }
  return learn(address);
}

// From another function's frame, which a sanitizer takes for a fault.
[[gnu::no_sanitize("address", "thread")]] std::uintptr_t load(std::uintptr_t address) {
  std::uintptr_t word;
  std::memcpy(&word, reinterpret_cast<void const*>(address), sizeof word);
  return word;
}

// To the caller's frame. False where the stack does not look as the rule says.
bool step(MEM_UNWIND_FRAME& frame, WORD rule) {
  const bool from_frame_pointer = kind_of(rule) == MEM_UNWIND_RULE::FROM_FRAME_POINTER;
  const std::uintptr_t cfa =
      (from_frame_pointer ? frame.frame_pointer : frame.stack_pointer) + cfa_offset_of(rule);
  if (cfa - frame.stack_pointer - 8 >= largest_frame) [[unlikely]]
    return false;
  if (const std::uintptr_t offset = frame_pointer_offset_of(rule))
    frame.frame_pointer = load(cfa - offset);
  frame.return_address = load(cfa - 8);
  frame.stack_pointer = cfa;
  return true;
}

}  // namespace

int mem_walk_stack(MEM_UNWIND_FRAME frame, int skip, void const** buffer, int max_frames) {
  for (int index = -skip; index < max_frames; ++index) {
    if (index >= 0) buffer[index] = reinterpret_cast<void const*>(frame.return_address);
    if (index + 1 == max_frames) break;
    const WORD rule = rule_at(frame.return_address);
    if (kind_of(rule) == MEM_UNWIND_RULE::OUTERMOST) return index < 0 ? 0 : index + 1;
    if (kind_of(rule) == MEM_UNWIND_RULE::UNKNOWN || !step(frame, rule)) [[unlikely]]
      return -1;
  }
  return max_frames;
}
