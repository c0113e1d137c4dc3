#include "tools/reports/figures.h"

#include <tuple>

namespace reports {

namespace {

std::optional<FIGURE> find(std::string_view FIGURE_COLUMN::*name, std::string_view wanted) {
  for (std::size_t figure = 0; figure < FIGURE_COUNT; ++figure)
    if (figure_columns[figure].*name == wanted) return static_cast<FIGURE>(figure);
  return std::nullopt;
}

}  // namespace

std::optional<FIGURE> figure_of_key(std::string_view key) { return find(&FIGURE_COLUMN::key, key); }
std::optional<FIGURE> figure_of_title(std::string_view title) {
  return find(&FIGURE_COLUMN::title, title);
}

FIGURE highest_of(const FIGURES& total) {
  return total[CURRENT_BYTES] > total[PEAK_BYTES] ? CURRENT_BYTES : PEAK_BYTES;
}

std::int64_t wrapping_sum(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

std::int64_t wrapping_difference(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

FIGURES& FIGURES::operator+=(const FIGURES& other) {
  for (std::size_t i = 0; i < FIGURE_COUNT; ++i)
    m_values[i] = wrapping_sum(m_values[i], other.m_values[i]);
  return *this;
}

FIGURES& FIGURES::operator-=(const FIGURES& other) {
  for (std::size_t i = 0; i < FIGURE_COUNT; ++i)
    m_values[i] = wrapping_difference(m_values[i], other.m_values[i]);
  return *this;
}

bool FIGURES::comes_before(const FIGURES& other) const {
  const auto key = [](const FIGURES& figures) {
    return std::make_tuple(figures[PEAK_BYTES], figures[CURRENT_BYTES], figures[CUMULATIVE_BYTES]);
  };
  return key(*this) > key(other);
}

}  // namespace reports
