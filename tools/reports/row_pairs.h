// Which rows of two runs are the same, though lines have moved.
#pragma once

#include <vector>

#include "tools/reports/row_groups.h"

namespace reports {

/// A row before and after; null where there is none.
struct ROW_PAIR {
  const GROUP* before;
  const GROUP* after;
};

/// Each row once. Rows are the same by module, function and file (or the file's base name, when the
/// sources have moved); where a function has several lines, by their order, and by the shift that
/// most of them agree on. Rows of other groupings are the same by all their names.
std::vector<ROW_PAIR> pair_rows(const GROUPS& before, const GROUPS& after);

/// The lines of one function, each list ascending: the pairs of indices that belong together, in
/// order. Every line of the shorter list finds a partner, unless others stand between.
std::vector<std::pair<std::size_t, std::size_t>> pair_lines(
    const std::vector<std::uint32_t>& before, const std::vector<std::uint32_t>& after);

}  // namespace reports
