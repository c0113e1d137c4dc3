// Counting by bin and tag, and the brackets a host can get wrong.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/user_memory_tracker.h"

namespace {

// Threads allocate and release under ids that make the array grow while writers copy it.
TEST(PbinTrackerMap, IsExactUnderThreads) {
  constexpr std::uint32_t ids = 300, threads = 4, rounds = 20;
  constexpr std::int64_t blocks = std::int64_t{threads} * rounds;
  MEM_PBIN_TRACKER_MAP map;
  std::atomic<std::uint32_t> counting = threads;
  std::vector<std::jthread> counters;
  for (std::uint32_t thread = 0; thread < threads; ++thread)
    counters.emplace_back([&] {
      for (std::uint32_t i = 0; i < ids * rounds; ++i) {
        map.allocate(100 + i % ids, i % ids);
        map.allocate(7, i % ids);
        map.release(100 + i % ids, i % ids);
      }
      --counting;
    });
  while (counting > 0) map.mark_as_peak(), map.flush_peak(), map.restore_peak();
  ASSERT_EQ(map.size(), ids);
  map.mark_as_peak();
  for (std::uint32_t id = 0; id < ids; ++id) {
    const std::int64_t round_bytes = 107 + std::int64_t{id};
    EXPECT_EQ(map[id].current, 7 * blocks);
    EXPECT_EQ(map[id].peak, 7 * blocks);
    EXPECT_EQ(map[id].cumulative, round_bytes * blocks);
    EXPECT_LE(map[id].max, 7 * blocks + round_bytes * threads);
  }
}

void open_bin(const char* name, const char* tag) {
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
  mem_open_profile_bin(name, tag);
}

void close_bin(const char* tag) {
  std::uint64_t bytes[3] = {};
  mem_close_profile_bin(tag, &bytes[0], &bytes[1], &bytes[2]);
}

constexpr std::pair<void (*)(), const char*> mistakes[] = {
    {[] { open_bin("b", "t"), close_bin("other"); },
     "name == get_curr_name\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] { open_bin("b", ""), close_bin(""), close_bin(""); },
     "!m_pb_id_stack.empty\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] { MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = true, close_bin(""); },
     "!stack.empty\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] {
       for (int id = 0; id <= 65535; ++id) open_bin(std::to_string(id).c_str(), "");
       mem_user_snapshot_tracking_data();
     },
     "current_pbin_id <= std::numeric_limits<PB_ID>::max\\(\\) \\(mem/mem_tbb_tracker:"},
};

TEST(ProfileBins, OpenedAndClosedWrongEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child would not be tracked
  for (const auto& [make, condition] : mistakes)
    EXPECT_DEATH(make(), std::string("MEM: ") + condition);
}

}  // namespace
