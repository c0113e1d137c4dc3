// From an address to the smallest of the ranges it lies in.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace symbols {

/// Ranges may overlap in any way: they are cut into pieces that do not, each of which belongs to
/// the smallest range there; of equal ones, to the one that was added last.
class RANGE_MAP {
 public:
  void add(std::uint64_t low, std::uint64_t high, std::uint32_t value) {
    // The linker leaves 0, or the highest numbers, of what it has thrown away.
    if (low != 0 && low < high) m_ranges.push_back({low, high, value});
  }
  /// To be called when all ranges are there, and before find.
  void finish();
  std::optional<std::uint32_t> find(std::uint64_t address) const;
  /// As find, but where no range is, the last one before.
  std::optional<std::uint32_t> find_here_or_before(std::uint64_t address) const;
  /// Calls with the beginning, the end and the value of each piece.
  template <class FUNCTION>
  void for_each(const FUNCTION& function) const {
    for (std::size_t i = 0; i + 1 < m_pieces.size(); ++i)
      if (m_pieces[i].value != nothing)
        function(m_pieces[i].low, m_pieces[i + 1].low, m_pieces[i].value);
  }
  std::size_t bytes() const { return m_pieces.capacity() * sizeof(PIECE); }

 private:
  struct RANGE {
    std::uint64_t low;
    std::uint64_t high;
    std::uint32_t value;
  };
  struct PIECE {  // up to the next one
    std::uint64_t low;
    std::uint32_t value;
  };
  static constexpr std::uint32_t nothing = UINT32_MAX;

  void cut_at_borders();
  std::vector<PIECE>::const_iterator behind(std::uint64_t address) const;

  std::vector<RANGE> m_ranges;
  std::vector<PIECE> m_pieces;
};

}  // namespace symbols
