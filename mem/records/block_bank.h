// A table of blocks, and what is remembered of each.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

#include "mem/base/guard_word.h"

/// Blocks are aligned to 16 bytes at least, and lie in runs: the low bits say nothing, and a
/// multiplication spreads the others over the high bits.
inline std::uint64_t mem_spread_bits(std::uintptr_t address) {
  return address * 0x9E3779B97F4A7C15ULL;
}

/// A block stands at its own place in a row, or in the run of taken ones behind it; at most three
/// quarters of the places are taken. A block that comes or goes takes one locked instruction and
/// mostly one line of cache. Maps consist of many banks, so that threads seldom meet in one, and
/// none is long in growing. A bank of zeros is empty.
template <class VALUE>
class alignas(32) MEM_BLOCK_BANK {
 public:
  struct PLACE {
    void const* block = nullptr;  // null where the place is free
    VALUE value{};
  };

  constexpr MEM_BLOCK_BANK() = default;
  MEM_BLOCK_BANK(const MEM_BLOCK_BANK&) = delete;
  MEM_BLOCK_BANK& operator=(const MEM_BLOCK_BANK&) = delete;

  /// Remembers a block, in place of what was known of it. True when the bank had no places before.
  /// May throw std::bad_alloc. `allocator` allocates PLACEs, always the same.
  template <class ALLOCATOR>
  bool insert(void const* block, const VALUE& value, ALLOCATOR& allocator) {
    const MEM_GUARDED guarded(m_guard);
    bool had_no_places = false;
    if (m_taken >= m_size - m_size / 4) [[unlikely]] {
      had_no_places = m_size == 0;
      grow(allocator);
    }
    PLACE& place = place_of(block);
    if (place.block == nullptr) ++m_taken;
    place = {block, value};
    return had_no_places;
  }

  /// Copies what is remembered of a block; false where it is not known.
  bool find(void const* block, VALUE& value) {
    const MEM_GUARDED guarded(m_guard);
    PLACE const* const place = find_place(block);
    if (place != nullptr) value = place->value;
    return place != nullptr;
  }

  /// The same, and forgets the block.
  bool take(void const* block, VALUE& value) {
    const MEM_GUARDED guarded(m_guard);
    PLACE* const place = find_place(block);
    if (place == nullptr) return false;
    value = place->value;
    --m_taken;
    close_gap(static_cast<std::uint32_t>(place - m_places));
    return true;
  }

  /// Forgets all and gives the places back. With nobody else about.
  template <class ALLOCATOR>
  void clear(ALLOCATOR& allocator) {
    if (m_places != nullptr) allocator.deallocate(m_places, m_size);
    m_places = nullptr;
    m_size = m_taken = 0;
  }

 private:
  static constexpr std::uint32_t first_size = 8;
  static constexpr std::uint32_t small = 64;

  // High bits, scaled to the number of places. Not the highest: of page-aligned blocks these are
  // the same in all of a bank that was chosen by the page.
  std::uint32_t home_of(void const* block) const {
    const std::uint64_t bits = mem_spread_bits(reinterpret_cast<std::uintptr_t>(block));
    return static_cast<std::uint32_t>(((bits << 4 >> 32) * m_size) >> 32);
  }
  std::uint32_t behind(std::uint32_t place) const { return place + 1 == m_size ? 0 : place + 1; }

  // Where a block stands, or would stand: a free place.
  PLACE& place_of(void const* block) {
    std::uint32_t place = home_of(block);
    while (m_places[place].block != block && m_places[place].block != nullptr)
      place = behind(place);
    return m_places[place];
  }

  PLACE* find_place(void const* block) {
    if (m_taken == 0) return nullptr;
    PLACE& place = place_of(block);
    return place.block == nullptr ? nullptr : &place;
  }

  // A block behind the gap moves into it unless its own place lies between the two.
  void close_gap(std::uint32_t gap) {
    for (std::uint32_t next = behind(gap); m_places[next].block != nullptr; next = behind(next)) {
      const std::uint32_t home = home_of(m_places[next].block);
      const bool home_lies_between =
          gap < next ? gap < home && home <= next : gap < home || home <= next;
      if (home_lies_between) continue;
      m_places[gap] = m_places[next];
      gap = next;
    }
    m_places[gap].block = nullptr;
  }

  template <class ALLOCATOR>
  [[gnu::cold, gnu::noinline]] void grow(ALLOCATOR& allocator) {
    const std::uint32_t size =
        m_size < small ? std::max(first_size, 2 * m_size) : m_size + m_size / 2;
    PLACE* const places = allocator.allocate(size);
    std::uninitialized_value_construct_n(places, size);
    PLACE* const former = std::exchange(m_places, places);
    const std::uint32_t former_size = std::exchange(m_size, size);
    for (std::uint32_t place = 0; place < former_size; ++place)
      if (former[place].block != nullptr) place_of(former[place].block) = former[place];
    if (former != nullptr) allocator.deallocate(former, former_size);
  }

  PLACE* m_places = nullptr;
  std::uint32_t m_size = 0;
  std::uint32_t m_taken = 0;
  std::uint32_t m_guard = 0;
};
