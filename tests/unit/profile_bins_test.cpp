// Counting by bin and tag, and the brackets a host can get wrong.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/tag_snapshots.h"
#include "mem/bins/user_memory_tracker.h"

namespace {

// Threads allocate and release under ids that make the array grow while writers copy it.
TEST(PbinTrackerMap, IsExactUnderThreads) {
  constexpr std::uint32_t ids = 300;
  constexpr int threads = 4;
  constexpr int rounds = 20;
  MEM_PBIN_TRACKER_MAP map;
  std::atomic<bool> done{false};
  std::thread writer([&] {
    while (!done) {
      map.mark_as_peak();
      map.flush_peak();
      map.restore_peak();
    }
  });
  std::vector<std::thread> counters;
  for (int thread = 0; thread < threads; ++thread)
    counters.emplace_back([&] {
      for (int round = 0; round < rounds; ++round)
        for (std::uint32_t id = 0; id < ids; ++id) {
          map.allocate(100 + id, id);
          map.allocate(7, id);
          map.release(100 + id, id);
        }
    });
  for (std::thread& counter : counters) counter.join();
  done = true;
  writer.join();
  ASSERT_EQ(map.size(), ids);
  constexpr std::int64_t blocks = threads * rounds;
  map.mark_as_peak();
  for (std::uint32_t id = 0; id < ids; ++id) {
    EXPECT_EQ(map[id].current, 7 * blocks);
    EXPECT_EQ(map[id].peak, 7 * blocks);
    EXPECT_EQ(map[id].cumulative, (107 + id) * blocks);
    EXPECT_GE(map[id].max, 7 * blocks);
    EXPECT_LE(map[id].max, 7 * blocks + (107 + id) * threads);
  }
}

TEST(PbinTrackerMap, MovesPeaksAndSkipsWhatIsGone) {
  MEM_PBIN_TRACKER_MAP map;
  map.release(5, 3);  // nothing there
  EXPECT_EQ(map.size(), 0U);
  map.allocate(50, 2);
  EXPECT_EQ(map.size(), 3U);
  EXPECT_EQ(map[1].cumulative, 0);
  map.mark_as_peak();
  map.flush_peak();
  map.release(40, 2);
  map.mark_as_peak();
  EXPECT_EQ(map[2].peak, 10);
  map.restore_peak();
  EXPECT_EQ(map[2].peak, 50);
  map.clear();
  EXPECT_EQ(map.size(), 0U);
  map.allocate(1, 0);
  EXPECT_EQ(map[0].flushed_peak, 0);
}

void close_bin(const char* tag) {
  std::uint64_t bytes[3] = {};
  mem_close_profile_bin(tag, &bytes[0], &bytes[1], &bytes[2]);
}

void open_detailed(const char* name, const char* tag) {
  MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = true;
  mem_open_profile_bin(name, tag);
}

struct MISTAKE_ROW {
  void (*make)();
  const char* condition;
};

constexpr MISTAKE_ROW mistakes[] = {
    {[] {
       MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = true;
       close_bin("");
     },
     "MEM: !stack.empty\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] {
       open_detailed("b", "t");
       close_bin("other");
     },
     "MEM: name == get_curr_name\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] {
       open_detailed("b", "");
       close_bin("");
       close_bin("");
     },
     "MEM: !m_pb_id_stack.empty\\(\\) \\(mem/mem_tbb_tracker_profile_bins:"},
    {[] {
       for (int id = 0; id <= 65535; ++id) open_detailed(std::to_string(id).c_str(), "");
       mem_user_snapshot_tracking_data();
     },
     "MEM: current_pbin_id <= std::numeric_limits<PB_ID>::max\\(\\) \\(mem/mem_tbb_tracker:"},
};

TEST(ProfileBins, OpenedAndClosedWrongEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child would not be tracked
  for (const MISTAKE_ROW& row : mistakes) EXPECT_DEATH(row.make(), row.condition);
}

TEST(ProfileBins, AreCheckedAgainstTheBinsThatAreOpen) {
  open_detailed("x", "");
  open_detailed("x", "");
  EXPECT_EQ(MEM_USER_MEMORY_TRACKER::get_current_pbin_id(), 1U);
  open_detailed("", "t");
  EXPECT_EQ(MEM_USER_MEMORY_TRACKER::pbin_id_to_string(2), "t::");
  close_bin("");  // leaves the tag open
  EXPECT_EQ(MEM_USER_MEMORY_TRACKER::get_most_recently_opened_pb_tag(), 1U);
  EXPECT_EQ(MEM_USER_MEMORY_TRACKER::pbin_id_to_string(1), "Root::x");
  EXPECT_THROW(MEM_USER_MEMORY_TRACKER::pbin_id_to_string(3), std::out_of_range);
}

}  // namespace
