#include "tools/symbols/core/range_map.h"

#include <iterator>
#include <numeric>

namespace symbols {

// The smaller ones are painted first, and the larger ones where nothing is yet. What is painted is
// jumped over: `next` leads from a piece to one that may be bare. Of equal ranges, the last one.
void RANGE_MAP::finish() {
  cut_at_borders();
  std::reverse(m_ranges.begin(), m_ranges.end());
  std::stable_sort(m_ranges.begin(), m_ranges.end(),
                   [](const RANGE& a, const RANGE& b) { return a.high - a.low < b.high - b.low; });
  std::vector<std::size_t> next(m_pieces.size());
  std::iota(next.begin(), next.end(), 0);
  const auto bare_from = [&](std::size_t piece) {
    while (next[piece] != piece) piece = next[piece] = next[next[piece]];
    return piece;
  };
  for (const RANGE& range : m_ranges) {
    const auto first = std::partition_point(m_pieces.begin(), m_pieces.end(),
                                            [&](const PIECE& p) { return p.low < range.low; });
    for (auto piece = bare_from(static_cast<std::size_t>(first - m_pieces.begin()));
         m_pieces[piece].low < range.high; piece = bare_from(piece)) {
      m_pieces[piece].value = range.value;
      next[piece] = piece + 1;
    }
  }
  m_ranges = {};
}

void RANGE_MAP::cut_at_borders() {
  m_pieces.reserve(2 * m_ranges.size());
  for (const RANGE& range : m_ranges) {
    m_pieces.push_back({range.low, nothing});
    m_pieces.push_back({range.high, nothing});
  }
  std::sort(m_pieces.begin(), m_pieces.end(),
            [](const PIECE& a, const PIECE& b) { return a.low < b.low; });
  m_pieces.erase(std::unique(m_pieces.begin(), m_pieces.end(),
                             [](const PIECE& a, const PIECE& b) { return a.low == b.low; }),
                 m_pieces.end());
}

std::vector<RANGE_MAP::PIECE>::const_iterator RANGE_MAP::behind(std::uint64_t address) const {
  return std::partition_point(m_pieces.begin(), m_pieces.end(),
                              [&](const PIECE& p) { return p.low <= address; });
}

std::optional<std::uint32_t> RANGE_MAP::find(std::uint64_t address) const {
  const auto next = behind(address);
  if (next == m_pieces.begin() || std::prev(next)->value == nothing) return std::nullopt;
  return std::prev(next)->value;
}

// A bare piece begins where a range ends.
std::optional<std::uint32_t> RANGE_MAP::find_here_or_before(std::uint64_t address) const {
  auto piece = behind(address);
  if (piece == m_pieces.begin()) return std::nullopt;
  if ((--piece)->value == nothing) --piece;
  return piece->value;
}

}  // namespace symbols
