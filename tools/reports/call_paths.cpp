#include "tools/reports/call_paths.h"

namespace reports {

KNOWN_FIGURES PATH_FIGURES::known() {
  KNOWN_FIGURES known;
  for (const FIGURE figure : order) known.set(figure);
  return known;
}

std::int64_t PATH_FIGURES::operator[](FIGURE figure) const {
  for (std::size_t position = 0; position < order.size(); ++position)
    if (order[position] == figure) return m_values[position];
  return 0;
}

PATH_FIGURES& PATH_FIGURES::operator+=(const PATH_FIGURES& other) {
  for (std::size_t i = 0; i < order.size(); ++i)
    m_values[i] = wrapping_sum(m_values[i], other.m_values[i]);
  return *this;
}

PATH_FIGURES& PATH_FIGURES::operator-=(const PATH_FIGURES& other) {
  for (std::size_t i = 0; i < order.size(); ++i)
    m_values[i] = wrapping_difference(m_values[i], other.m_values[i]);
  return *this;
}

FIGURES PATH_FIGURES::figures() const {
  FIGURES figures;
  for (std::size_t i = 0; i < order.size(); ++i) figures[order[i]] = m_values[i];
  return figures;
}

}  // namespace reports
