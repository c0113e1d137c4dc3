#include "tools/reports/row_pairs.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

namespace reports {

namespace {

using KEY = std::tuple<std::string_view, std::string_view, std::string_view, std::string_view>;
using ROWS = std::vector<const GROUP*>;
using ROWS_BY_KEY = std::map<KEY, std::pair<ROWS, ROWS>>;

std::string_view base_name(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Enough lines of one function for all shifts to be looked at.
constexpr std::size_t many_lines = 1000;

// The shift that most pairs of lines have; of equals the smallest.
std::int64_t usual_shift(const std::vector<std::uint32_t>& before,
                         const std::vector<std::uint32_t>& after) {
  std::map<std::int64_t, std::size_t> counts;
  for (std::size_t i = 0; i < std::min(before.size(), many_lines); ++i)
    for (std::size_t j = 0; j < std::min(after.size(), many_lines); ++j)
      ++counts[std::int64_t{after[j]} - std::int64_t{before[i]}];
  std::pair<std::int64_t, std::size_t> best{0, 0};
  for (const auto& [shift, count] : counts)
    if (count > best.second || (count == best.second && std::llabs(shift) < std::llabs(best.first)))
      best = {shift, count};
  return best.first;
}

class PAIRING {
 public:
  PAIRING(const GROUPS& before, const GROUPS& after) {
    for (const GROUP& row : before.rows) m_before.push_back(&row);
    for (const GROUP& row : after.rows) m_after.push_back(&row);
  }

  // Pairs what has the same key and is not paired yet.
  void pair_by(KEY (*key)(const GROUP& row)) {
    ROWS_BY_KEY rows;
    for (const GROUP* const row : m_before) rows[key(*row)].first.push_back(row);
    for (const GROUP* const row : m_after) rows[key(*row)].second.push_back(row);
    m_before.clear();
    m_after.clear();
    for (auto& [same, both] : rows) pair_in(both.first, both.second);
  }

  std::vector<ROW_PAIR> finished() && {
    for (const GROUP* const row : m_before) m_pairs.push_back({row, nullptr});
    for (const GROUP* const row : m_after) m_pairs.push_back({nullptr, row});
    return std::move(m_pairs);
  }

 private:
  static std::vector<std::uint32_t> lines_of(ROWS& rows) {
    std::stable_sort(rows.begin(), rows.end(),
                     [](const GROUP* a, const GROUP* b) { return a->line < b->line; });
    std::vector<std::uint32_t> lines;
    for (const GROUP* const row : rows) lines.push_back(row->line);
    return lines;
  }

  void pair_in(ROWS& before, ROWS& after) {
    const auto pairs = pair_lines(lines_of(before), lines_of(after));
    for (const auto& [i, j] : pairs) {
      m_pairs.push_back({before[i], after[j]});
      before[i] = after[j] = nullptr;
    }
    for (const GROUP* const row : before)
      if (row != nullptr) m_before.push_back(row);
    for (const GROUP* const row : after)
      if (row != nullptr) m_after.push_back(row);
  }

  std::vector<ROW_PAIR> m_pairs;
  ROWS m_before;  // without a partner
  ROWS m_after;
};

}  // namespace

std::vector<std::pair<std::size_t, std::size_t>> pair_lines(
    const std::vector<std::uint32_t>& before, const std::vector<std::uint32_t>& after) {
  std::vector<std::pair<std::size_t, std::size_t>> pairs;
  const std::int64_t shift = usual_shift(before, after);
  // Between two lines that moved by the usual shift, the others follow each other.
  const auto pair_in_order = [&](std::size_t i, std::size_t i_end, std::size_t j,
                                 std::size_t j_end) {
    for (; i < i_end && j < j_end; ++i, ++j) pairs.emplace_back(i, j);
  };
  std::size_t i_done = 0;
  std::size_t j_done = 0;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const std::int64_t wanted = std::int64_t{before[i]} + shift;
    const auto found =
        std::lower_bound(after.begin() + static_cast<std::ptrdiff_t>(j_done), after.end(), wanted,
                         [](std::uint32_t line, std::int64_t other) { return line < other; });
    if (found == after.end() || *found != wanted) continue;
    const auto j = static_cast<std::size_t>(found - after.begin());
    pair_in_order(i_done, i, j_done, j);
    pairs.emplace_back(i, j);
    i_done = i + 1;
    j_done = j + 1;
  }
  pair_in_order(i_done, before.size(), j_done, after.size());
  return pairs;
}

std::vector<ROW_PAIR> pair_rows(const GROUPS& before, const GROUPS& after) {
  PAIRING pairing(before, after);
  pairing.pair_by([](const GROUP& row) {
    return KEY{row.name, row.module, row.function, row.file};
  });
  pairing.pair_by([](const GROUP& row) {
    return KEY{row.name, row.module, row.function, base_name(row.file)};
  });
  return std::move(pairing).finished();
}

}  // namespace reports
