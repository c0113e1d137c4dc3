// The unwind rules of return addresses, remembered.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

/// How to leave the frame that a return address lies in, in one word with that address, so that
/// threads share the table of them without a lock:
///
///   63       31 30   29     28       27                   15 14          0
///   [   tag    ][ kind ][ looked through ][ frame pointer offset ][ CFA offset ]
///
/// The CFA is the value of the stack pointer before the call; the return address lies in the 8
/// bytes below it. The tag is the address without its low 14 bits, of which the place in the table
/// tells the rest. Offsets are in units of 8 bytes. A word of zeros is an empty place: its rule
/// leads nowhere. Whoever judges frames may note here which it always looks through.
class MEM_UNWIND_RULE {
 public:
  enum KIND : unsigned char {
    FROM_STACK_POINTER,  ///< CFA = stack pointer + CFA offset
    FROM_FRAME_POINTER,  ///< CFA = frame pointer + CFA offset
    OUTERMOST,           ///< there is no caller
    OTHER,               ///< more than a word can say, or nothing is known
  };

  explicit MEM_UNWIND_RULE(std::uint64_t word) : m_word(word) {}

  KIND kind() const { return static_cast<KIND>((m_word >> kind_shift) & 3); }
  std::uintptr_t cfa_offset() const { return (m_word & ((1U << cfa_bits) - 1)) * 8; }
  /// The frame pointer was saved so many bytes below the CFA; 0: never.
  std::uintptr_t frame_pointer_offset() const {
    return ((m_word >> cfa_bits) & ((1U << frame_pointer_bits) - 1)) * 8;
  }

  bool is_looked_through() const { return ((m_word >> looked_through_shift) & 1) != 0; }

  static constexpr int place_bits = 14;
  static constexpr int cfa_bits = 15;
  static constexpr int frame_pointer_bits = 13;
  static constexpr int looked_through_shift = cfa_bits + frame_pointer_bits;
  static constexpr int kind_shift = looked_through_shift + 1;
  static constexpr int tag_shift = kind_shift + 2;

 private:
  std::uint64_t m_word;
};

class MEM_RULE_TABLE {
 public:
  /// The rule at a return address, learnt when it is not known. Any thread, at any time; takes a
  /// lock only to learn of a module for the first time.
  MEM_UNWIND_RULE at(std::uintptr_t return_address) {
    const WORD tag = tag_of(return_address);
    for (const PLACE& place : set_of(return_address)) {
      const WORD word = place.load(std::memory_order_relaxed);
      if (word >> MEM_UNWIND_RULE::tag_shift == tag) [[likely]]
        return MEM_UNWIND_RULE(word);
    }
    return MEM_UNWIND_RULE(learn(return_address));
  }

  /// Notes that the frame at a return address is looked through; nothing where its rule is not
  /// known.
  void note_looked_through(std::uintptr_t return_address);
  /// Forgets all that was noted. Nobody notes anything meanwhile.
  void forget_looked_through();

  /// Forgets the rules of [begin, end), once the module there is gone. What a thread has read of
  /// that module and not yet remembered is not remembered either.
  void forget(std::uintptr_t begin, std::uintptr_t end);

  /// Another one whenever anything was forgotten: what follows from rules holds no longer.
  unsigned generation() const { return m_generation.load(std::memory_order_relaxed); }

 private:
  using WORD = std::uint64_t;
  using PLACE = std::atomic<WORD>;
  using SET = std::array<PLACE, 4>;
  static constexpr WORD looked_through = WORD{1} << MEM_UNWIND_RULE::looked_through_shift;
  static constexpr std::size_t set_count = 1U << MEM_UNWIND_RULE::place_bits;

  static WORD tag_of(std::uintptr_t address) { return address >> MEM_UNWIND_RULE::place_bits; }
  static std::size_t index_of(std::uintptr_t address) {
    return (address ^ tag_of(address)) & (set_count - 1);
  }
  static std::uintptr_t address_of(std::size_t index, WORD word);

  SET& set_of(std::uintptr_t address) { return m_sets[index_of(address)]; }
  WORD learn(std::uintptr_t address);
  void remember(std::uintptr_t address, WORD word, unsigned generation);
  static void forget_rule(PLACE& place, WORD word);

  alignas(64) std::array<SET, set_count> m_sets{};
  std::atomic<unsigned> m_generation{0};  // grows whenever anything is forgotten
  std::atomic<unsigned> m_next_place{0};  // which of a full set gives way
  std::atomic<bool> m_noted{false};  // that a frame is looked through, since all were forgotten
};

[[gnu::visibility("hidden")]] extern constinit MEM_RULE_TABLE mem_unwind_rules;
