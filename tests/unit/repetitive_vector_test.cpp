// The run-length sequence of the timelines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mem/timeline/repetitive_vector.h"

namespace {

using SERIES = MEM_REPETITIVE_VECTOR<std::int64_t>;
using LABELS = MEM_REPETITIVE_VECTOR<std::string>;
using testing::ElementsAre;

template <class T>
std::vector<T> values(const MEM_REPETITIVE_VECTOR<T>& vector) {
  std::vector<T> result;
  auto value = vector.begin();
  for (std::uint64_t i = 0; i < vector.size(); ++i, ++value) result.push_back(*value);
  return result;
}

TEST(RepetitiveVector, KeepsTheValuesInOneRunPerChange) {
  struct ROW {
    std::uint64_t zeros;
    std::vector<std::int64_t> appended;
    std::vector<std::int64_t> held;
    std::size_t runs;
  };
  const ROW rows[] = {
      {0, {}, {}, 0},
      {0, {0}, {0}, 1},
      {0, {5, 5, 5, 7, 5}, {5, 5, 5, 7, 5}, 3},
      {4, {}, {0, 0, 0, 0}, 1},
      {4, {0}, {0, 0, 0, 0, 0}, 1},
      {4, {3, 3, 0}, {0, 0, 0, 0, 3, 3, 0}, 3},
      {1, {-1, INT64_MIN, INT64_MIN}, {0, -1, INT64_MIN, INT64_MIN}, 3},
  };
  for (const ROW& row : rows) {
    SERIES series(row.zeros);
    for (const std::int64_t value : row.appended) series.append(value);
    EXPECT_EQ(values(series), row.held);
    EXPECT_EQ(series.size(), row.held.size());
    EXPECT_EQ(series.runs(), row.runs) << testing::PrintToString(row.held);
  }
}

TEST(RepetitiveVector, TellsLabelsApartByCase) {
  LABELS labels(2);
  for (char const* label : {"", "a", "a", "A", "a"}) labels.append(label);
  EXPECT_THAT(values(labels), ElementsAre("", "", "", "a", "a", "A", "a"));
  EXPECT_EQ(labels.runs(), 4U);
}

}  // namespace
