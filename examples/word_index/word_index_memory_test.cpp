// How a host's tests hold a function to the memory it may take.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tuk_mem_scopes.h"
#include "word_index/word_index.h"

namespace {

/// Matches a function that, called, holds at most `bytes` more at one moment than before.
MATCHER_P(PeaksWithin, bytes, "peaks within " + std::to_string(bytes) + " bytes") {
  const std::int64_t growth = mem_peak_growth_of(arg);
  *result_listener << "which peaks at " << growth;
  return growth <= bytes;
}

class WORD_INDEX_MEMORY : public testing::Test {
 protected:
  void SetUp() override {
    if (!mem_allocator_is_hooked())
      GTEST_SKIP() << "nothing to measure with: no allocator with hooks";
    mem_enable_tracking(MEM_TRACK_PER_BIN);
  }
};

TEST_F(WORD_INDEX_MEMORY, GrowsWithOccurrencesAndNotWithTheirText) {
  const auto index_lines = [](std::uint32_t lines, const std::string& line) {
    return [lines, &line] {
      WORD_INDEX index;
      for (std::uint32_t number = 1; number <= lines; ++number) index.add_line(number, line);
    };
  };
  const std::string line = "a word that is longer than short strings are";
  constexpr std::int64_t occurrences = 9000;
  EXPECT_THAT(index_lines(1000, line), PeaksWithin(occurrences * 16 * 3));
  EXPECT_THAT(index_lines(1000, line), testing::Not(PeaksWithin(occurrences * 16 / 2)));
}

}  // namespace
