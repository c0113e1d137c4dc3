// The run-length vector of the timelines, the tables of blocks, and the bounded string helpers.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/records/block_bank.h"
#include "mem/timeline/repetitive_vector.h"

namespace {

TEST(RepetitiveVector, KeepsRunsAndIteratesOverValues) {
  MEM_REPETITIVE_VECTOR<std::int64_t> vector(2);
  std::vector<std::int64_t> expected = {0, 0};
  for (const std::int64_t value : {0, 5, 5, 7, 5, 5}) {
    vector.append(value);
    expected.push_back(value);
  }
  ASSERT_EQ(vector.size(), expected.size());
  EXPECT_EQ(vector.runs(), 4U);
  EXPECT_EQ(vector.largest(), 7);
  auto value = vector.begin();
  for (const std::int64_t one : expected) {
    EXPECT_EQ(*value, one);
    ++value;
  }
  EXPECT_EQ(MEM_REPETITIVE_VECTOR<std::int64_t>(0).runs(), 0U);
}

// Few places and many neighbours: runs go around the end of the row, and gaps are closed.
TEST(BlockBank, KnowsWhatAPlainMapKnows) {
  using BANK = MEM_BLOCK_BANK<int>;
  BANK bank;
  std::allocator<BANK::PLACE> allocator;
  std::map<std::uintptr_t, int> expected;
  std::minstd_rand random(1);
  for (int step = 0; step < 200'000; ++step) {
    const std::uintptr_t address = 16 * (1 + random() % (step < 100'000 ? 12 : 3000));
    auto* const block = reinterpret_cast<void const*>(address);
    int found = -1;
    const auto known = expected.find(address);
    const bool inserts = random() % 2 == 0;
    ASSERT_EQ(inserts ? bank.find(block, found) : bank.take(block, found), known != expected.end());
    ASSERT_EQ(found, known == expected.end() ? -1 : known->second);
    if (inserts)
      bank.insert(block, expected[address] = step, allocator);
    else
      expected.erase(address);
  }
  bank.clear(allocator);
}

TEST(BoundedStrings, CutTerminateAndTellTheLengthWanted) {
  constexpr std::tuple<const char*, std::size_t (*)(char*), std::size_t, const char*> rows[] = {
      {"", [](char* dst) { return stl_strlcpy(dst, "abcdef", 4); }, 6, "abc"},
      {"xyz", [](char* dst) { return stl_strlcpy(dst, "abc", 1); }, 3, ""},
      {"xyz", [](char* dst) { return stl_strlcpy(dst, "abc", 0); }, 3, ""},
      {"ab", [](char* dst) { return stl_strlcat(dst, "cdef", 8); }, 6, "abcdef"},
      {"ab", [](char* dst) { return stl_strlcat(dst, "cdef", 5); }, 6, "abcd"},
      {"abcd", [](char* dst) { return stl_strlcat(dst, "ef", 3); }, 4, "ab"},
      {"ab", [](char* dst) { return stl_strlncat(dst, "cdef", 2, 8); }, 6, "abcd"},
      {"ab", [](char* dst) { return stl_strlncat(dst, "cdef", 0, 8); }, 6, "ab"},
  };
  for (const auto& [before, operation, result, after] : rows) {
    char dst[16] = {};
    std::string(before).copy(dst, sizeof dst);
    EXPECT_EQ(operation(dst), result) << after;
    EXPECT_STREQ(dst, after);
  }
  std::string text = "aZ\xe4";
  EXPECT_EQ(stl_toupper(text), "AZ\xe4");
  EXPECT_EQ(stl_tolower(text), "az\xe4");
}

}  // namespace
