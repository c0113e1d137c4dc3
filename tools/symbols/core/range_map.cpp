#include "tools/symbols/core/range_map.h"

#include <iterator>

namespace symbols {

// The larger ones are painted first, and the smaller ones over them.
void RANGE_MAP::finish() {
  std::stable_sort(m_ranges.begin(), m_ranges.end(),
                   [](const RANGE& a, const RANGE& b) { return a.high - a.low > b.high - b.low; });
  std::map<std::uint64_t, std::uint32_t> pieces{{0, nothing}};
  for (const RANGE& range : m_ranges) {
    const auto behind = pieces.lower_bound(range.high);
    const std::uint32_t before_end = std::prev(behind)->second;
    const auto end = behind != pieces.end() && behind->first == range.high
                         ? behind
                         : pieces.emplace_hint(behind, range.high, before_end);
    pieces.erase(pieces.lower_bound(range.low), end);
    pieces.emplace_hint(end, range.low, range.value);
  }
  m_ranges = {};
  m_pieces.reserve(pieces.size());
  for (const auto& [low, value] : pieces) m_pieces.push_back({low, value});
}

std::optional<std::uint32_t> RANGE_MAP::find(std::uint64_t address) const {
  const auto behind = std::partition_point(m_pieces.begin(), m_pieces.end(),
                                           [&](const PIECE& p) { return p.low <= address; });
  if (behind == m_pieces.begin() || std::prev(behind)->value == nothing) return std::nullopt;
  return std::prev(behind)->value;
}

}  // namespace symbols
