// The run-length vector of the timelines, the tables of blocks, and the bounded string helpers.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/paths/numbered.h"
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

// Records that never move, over several stretches, and an index over them of few digests, so that
// runs are long, go around the end, and are closed up when modules are removed.
TEST(Numbered, RecordsStayAndAreFoundByTheirDigests) {
  struct RECORD {
    std::uint64_t key;
    std::uint64_t digest;
  };
  MEM_NUMBERED<RECORD> records;
  MEM_NUMBER_INDEX index;
  std::map<std::uint64_t, std::uint32_t> expected;
  std::vector<const RECORD*> places;
  std::minstd_rand random(1);
  const auto digest_of = [&](std::uint32_t number) { return records[number].digest; };
  const auto found = [&](std::uint64_t key, std::uint64_t digest) {
    return index.find(digest, [&](std::uint32_t number) { return records[number].key == key; });
  };
  EXPECT_EQ(found(1, 1), MEM_NUMBER_INDEX::none);
  for (int round = 0; round < 40; ++round) {
    for (int i = 0; i < 100; ++i) {
      const std::uint64_t key = random() % 5000;
      const std::uint64_t digest = key % 7 * 37;
      const auto known = expected.find(key);
      ASSERT_EQ(found(key, digest), known == expected.end() ? 0 : known->second);
      if (known != expected.end()) continue;
      index.make_room(digest_of);
      const std::uint32_t number = records.add(key, digest);
      index.add(digest, number);
      expected[key] = number;
      places.push_back(&records[number]);
    }
    const std::uint64_t gone = random() % 3;  // of three modules, and not every time
    index.keep(digest_of, [&](std::uint32_t number) {
      return round % 4 != 0 || records[number].key % 3 != gone;
    });
    if (round % 4 == 0)
      std::erase_if(expected, [&](const auto& one) { return one.first % 3 == gone; });
    for (const auto& [key, number] : expected) ASSERT_EQ(found(key, digest_of(number)), number);
  }
  for (std::uint32_t number = 1; number <= records.count(); ++number)
    ASSERT_EQ(&records[number], places[number - 1]);
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
