// The figures that rows of reports have: one table of columns for whoever reads, sums or prints
// them. Like all of tools/reports/, needs the standard library alone.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace reports {

enum FIGURE : std::size_t {
  CURRENT_BYTES,
  MAX_BYTES,
  PEAK_BYTES,
  CUMULATIVE_BYTES,
  REQUESTED_BYTES,
  MISMATCHED_BYTES,
  CURRENT_BLOCKS,
  MAX_BLOCKS,
  PEAK_BLOCKS,
  CUMULATIVE_BLOCKS,
  TEMPORARY_BLOCKS,  ///< freed before their thread's next allocation
  FIGURE_COUNT
};

struct FIGURE_COLUMN {
  std::string_view key;      ///< in JSON and CSV, and on the command line
  std::string_view title;    ///< in the reports
  std::string_view heading;  ///< on a terminal
  bool is_bytes;             ///< or a number of blocks
};

/// By FIGURE.
inline constexpr std::array<FIGURE_COLUMN, FIGURE_COUNT> figure_columns = {{
    {"current_bytes", "Current bytes", "CURRENT", true},
    {"max_bytes", "Max bytes", "MAX", true},
    {"peak_bytes", "Peak bytes", "PEAK", true},
    {"cumulative_bytes", "Cumulative bytes", "TOTAL", true},
    {"cumulative_requested_bytes", "Cumulative requested bytes", "REQUESTED", true},
    {"cumulative_mismatched_bytes", "Cumulative mismatched bytes", "MISMATCHED", true},
    {"current_blocks", "Current blocks", "CURRENT#", false},
    {"max_blocks", "Max blocks", "MAX#", false},
    {"peak_blocks", "Peak blocks", "PEAK#", false},
    {"cumulative_blocks", "Cumulative blocks", "TOTAL#", false},
    {"temporary_blocks", "Temporary blocks", "TEMPORARY#", false},
}};

/// Which figures a report has; the others are 0.
using KNOWN_FIGURES = std::bitset<FIGURE_COUNT>;

/// The column of that key or title.
std::optional<FIGURE> figure_of_key(std::string_view key);
std::optional<FIGURE> figure_of_title(std::string_view title);

/// Wraps around instead of overflowing: a damaged report may hold any number.
std::int64_t wrapping_sum(std::int64_t a, std::int64_t b);
std::int64_t wrapping_difference(std::int64_t a, std::int64_t b);

class FIGURES {
 public:
  std::int64_t& operator[](FIGURE figure) { return m_values[figure]; }
  std::int64_t operator[](FIGURE figure) const { return m_values[figure]; }
  FIGURES& operator+=(const FIGURES& other);
  FIGURES& operator-=(const FIGURES& other);

  /// The order of the reports: by peak, then by what is live, then by what was ever allocated.
  bool comes_before(const FIGURES& other) const;

 private:
  std::array<std::int64_t, FIGURE_COUNT> m_values{};
};

/// The figure to show where most was held, by the sum of all rows: the recorded peak's, or what is
/// live where that is more, as at the end of a program that only ever grows.
FIGURE highest_of(const FIGURES& total);

}  // namespace reports
