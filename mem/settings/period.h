// A number of events after which something is due again.
#pragma once

#include <bit>
#include <cstdint>

/// Every accounted event asks whether its number is a multiple of the period: by a multiplication,
/// which takes a tenth of a division's time. At least 1.
class MEM_PERIOD {
 public:
  constexpr explicit MEM_PERIOD(std::uint64_t events)
      : m_events(events),
        m_most(UINT64_MAX / events),
        m_inverse(inverse_of(events >> std::countr_zero(events))),
        m_twos(std::countr_zero(events)) {}

  constexpr std::uint64_t events() const { return m_events; }

  /// Multiplied by the inverse of the period's odd part, a multiple of it becomes the quotient, and
  /// any other number one that is too large to be a quotient. Rotating does the same for the twos.
  constexpr bool divides(std::uint64_t number) const {
    return std::rotr(number * m_inverse, m_twos) <= m_most;
  }

 private:
  // Modulo 2 to the 64th, by Newton's iteration: an odd number is its own inverse in 3 bits, and
  // each step doubles them.
  static constexpr std::uint64_t inverse_of(std::uint64_t odd) {
    std::uint64_t inverse = odd;
    for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - odd * inverse;
    return inverse;
  }

  std::uint64_t m_events;
  std::uint64_t m_most;  // the largest quotient
  std::uint64_t m_inverse;
  int m_twos;
};
