// Records with numbers, that never move. Relies on mem/modules, mem/unwind, mem/base, mem/settings,
// mem/state, mem/symbolizer and mem/records, like everything in this folder.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <vector>

#include "mem/base/bookkeeping.h"

/// Records with the numbers 1, 2 and so on. One thread at a time adds; others read meanwhile what
/// they know to be there.
template <class RECORD>
class MEM_NUMBERED {
 public:
  static_assert(std::is_trivially_destructible_v<RECORD>);
  static constexpr std::uint32_t most = 1U << 30;

  MEM_NUMBERED() = default;
  MEM_NUMBERED(const MEM_NUMBERED&) = delete;
  MEM_NUMBERED& operator=(const MEM_NUMBERED&) = delete;
  ~MEM_NUMBERED() {
    for (std::size_t stretch = 0; stretch < m_stretches.size(); ++stretch)
      if (m_stretches[stretch] != nullptr) MEMORY().deallocate(m_stretches[stretch], size(stretch));
  }

  std::uint32_t count() const { return m_count.load(std::memory_order_acquire); }

  RECORD& operator[](std::uint32_t number) {
    const PLACE place(number);
    return m_stretches[place.stretch].load(std::memory_order_acquire)[place.index];
  }

  /// The number of another one. May throw std::bad_alloc, also where there are too many.
  template <class... VALUES>
  std::uint32_t add(VALUES... values) {
    const std::uint32_t number = m_count.load(std::memory_order_relaxed) + 1;
    if (number > most) throw std::bad_alloc();
    const PLACE place(number);
    std::atomic<RECORD*>& stretch = m_stretches[place.stretch];
    if (stretch.load(std::memory_order_relaxed) == nullptr)
      stretch.store(MEMORY().allocate(size(place.stretch)), std::memory_order_release);
    new (stretch.load(std::memory_order_relaxed) + place.index) RECORD{values...};
    m_count.store(number, std::memory_order_release);
    return number;
  }

  template <class VISIT>
  void for_each(VISIT visit) {
    const std::uint32_t last = count();
    for (std::uint32_t number = 1; number <= last; ++number) visit((*this)[number]);
  }

 private:
  using MEMORY = MEM_CACHE_ALIGNED_ALLOCATOR<RECORD>;

  // Each stretch is twice as long as the one before.
  static constexpr int first_bits = 8;
  struct PLACE {
    std::size_t stretch;
    std::uint32_t index;
    explicit PLACE(std::uint32_t number) {
      const std::uint32_t shifted = number - 1 + (1U << first_bits);
      stretch = static_cast<std::size_t>(std::bit_width((shifted >> first_bits) | 1)) - 1;
      index = shifted - (1U << (stretch + first_bits));
    }
  };
  static std::size_t size(std::size_t stretch) { return std::size_t{1} << (stretch + first_bits); }

  std::array<std::atomic<RECORD*>, 32 - first_bits> m_stretches{};
  std::atomic<std::uint32_t> m_count{0};
};

/// Finds numbers by what they stand for. One thread at a time.
class MEM_NUMBER_INDEX {
 public:
  static constexpr std::uint32_t none = 0;

  /// The number with this digest for which `is` holds.
  template <class IS>
  std::uint32_t find(std::uint64_t digest, IS is) const {
    if (m_numbers.empty()) return none;
    std::size_t place = home_of(digest);
    while (m_numbers[place] != none && !is(m_numbers[place])) place = behind(place);
    return m_numbers[place];
  }

  /// Room for one more, so that `add` does not fail. May throw std::bad_alloc.
  template <class DIGEST_OF>
  void make_room(DIGEST_OF digest_of) {
    if (m_taken < m_numbers.size() / 4 * 3) return;
    NUMBERS former(std::max<std::size_t>(first_size, 2 * m_numbers.size()), none);
    former.swap(m_numbers);
    m_taken = 0;
    for (const std::uint32_t number : former)
      if (number != none) add(digest_of(number), number);
  }
  void add(std::uint64_t digest, std::uint32_t number) {
    std::size_t place = home_of(digest);
    while (m_numbers[place] != none) place = behind(place);
    m_numbers[place] = number;
    ++m_taken;
  }

  /// Goes on with those numbers only for which `stays` holds. Takes no memory.
  template <class DIGEST_OF, class STAYS>
  void keep(DIGEST_OF digest_of, STAYS stays) {
    for (std::size_t place = 0; place < m_numbers.size(); ++place)
      if (m_numbers[place] != none && !stays(m_numbers[place])) remove(place--, digest_of);
  }

 private:
  using NUMBERS = std::vector<std::uint32_t, MEM_BOOKKEEPING_ALLOCATOR<std::uint32_t>>;
  static constexpr std::size_t first_size = 256;

  std::size_t home_of(std::uint64_t digest) const { return digest & (m_numbers.size() - 1); }
  std::size_t behind(std::size_t place) const { return (place + 1) & (m_numbers.size() - 1); }

  // One behind the gap moves into it unless its own place lies between the two.
  template <class DIGEST_OF>
  void remove(std::size_t gap, DIGEST_OF digest_of) {
    for (std::size_t next = behind(gap); m_numbers[next] != none; next = behind(next)) {
      const std::size_t from_home =
          (next - home_of(digest_of(m_numbers[next]))) & (m_numbers.size() - 1);
      if (from_home < ((next - gap) & (m_numbers.size() - 1))) continue;
      m_numbers[gap] = m_numbers[next];
      gap = next;
    }
    m_numbers[gap] = none;
    --m_taken;
  }

  NUMBERS m_numbers;
  std::size_t m_taken = 0;
};
