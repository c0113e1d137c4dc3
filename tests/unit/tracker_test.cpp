// Accounting, on an allocator with the hook interface whose sizes are multiples of 16.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "mem/bins/pbin_tracker_map.h"
#include "mem/manager/statistics.h"
#include "mem/records/module_map.h"
#include "mem/records/site_map.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/granularity.h"
#include "mem/state/totals.h"
#include "platform/udm_notifier.h"
#include "tests/support/dumps.h"
#include "tests/support/threads.h"
#include "tests/support/tracked_sites.h"

namespace {

using FRAMES = SCRIPTED_SYMBOLIZER::FRAMES;

MEM_ADDRESS_TRACKER site_of(void const* block) {
  MEM_ADDRESS_TRACKER site{};
  EXPECT_TRUE(mem_get_address_tracker(block, site));
  return site;
}

// Current and cumulative bytes.
template <class MAP>
std::pair<std::int64_t, std::uint64_t> sums_of(const MAP& map) {
  std::pair<std::int64_t, std::uint64_t> sums;
  for (const auto& [key, record] : map) {
    sums.first += record.current_bytes;
    sums.second += record.cumulative_bytes;
  }
  return sums;
}

// Where a live block of 32 bytes is known: itself, at its site, in its module, in the statistics
// and in the total.
std::string levels_charged_under(int granularity) {
  mem_enable_tracking(bits(granularity));
  void* block = allocate_at<0>(20);
  MEM_ADDRESS_TRACKER site;
  const bool levels[] = {mem_get_address_tracker(block, site),
                         sums_of(*mem_address_tracker_map).first == 32,
                         sums_of(*mem_module_tracker_map).first == 32,
                         mem_get_current_bytes() == 32, mem_current_bytes == 32};
  STAND_IN::release(block);
  mem_disable_tracking(bits(granularity));
  std::string letters;
  for (int level = 0; level < 5; ++level)
    if (levels[level]) letters += "bsmST"[level];
  return letters;
}

TEST_F(TRACKER, EveryGranularityChargesAndCreditsItsOwnLevels) {
  constexpr std::pair<int, char const*> rows[] = {{1, "S"},   {2, "T"},   {4, "bmT"},
                                                  {8, "bsT"}, {16, "bs"}, {32, "S"},
                                                  {64, ""},   {0, ""},    {127, "bsmST"}};
  for (const auto& [granularity, levels] : rows)
    EXPECT_EQ(levels_charged_under(granularity), levels) << granularity;
}

TEST_F(TRACKER, ForgetsAtAResetAllButBins) {
  mem_enable_tracking(bits(2 | 4 | 8));
  void* const before[] = {allocate_at<0>(50), allocate_at<0>(50)};
  mem_reset_tracking_entries();
  allocate_at<0>(20);
  for (void* const block : before) STAND_IN::release(block);
  EXPECT_EQ(mem_current_bytes, 32);
  MEMORY_TRACKER_BASE catch_all{};
  EXPECT_TRUE(mem_get_module_tracker("OTHER", catch_all));
  EXPECT_EQ(catch_all.current_bytes, -128);
  EXPECT_EQ((*mem_pbin_tag_tracker)[0].current, 32);
  EXPECT_EQ((*mem_pbin_tracker)[0].cumulative, 128 + 32);
  EXPECT_EQ((*mem_pbin_tracker)[0].current, 32);
  m_symbolizer.frames_at = [](void const*) { return FRAMES{frame("alpha", "std::f", "/f.cpp")}; };
  allocate_at<1>(20);
  MEM_ADDRESS_TRACKER other{};
  EXPECT_TRUE(mem_get_address_tracker(nullptr, other));
  EXPECT_EQ(static_cast<std::int32_t>(other.current_blocks), -1);
  EXPECT_EQ(other.max_blocks, 0U);
}

// A reset comes while threads charge and release under detailed bins.
TEST_F(TRACKER, OwesNoTagAByteOfABlockFromBeforeAReset) {
  mem_enable_tracking(bits(2));
  for (int round = 0; round < 40; ++round) {
    std::atomic<bool> done = false;
    auto workers = start_threads(3, [&](unsigned) {
      while (!done) STAND_IN::release(allocate_at<0>(20));
    });
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    mem_reset_tracking_entries();
    done = true;
    workers.clear();
    ASSERT_EQ(mem_current_bytes, 0);
    if (mem_pbin_tag_tracker->size() > 0) {
      ASSERT_EQ((*mem_pbin_tag_tracker)[0].current, 0);
    }
  }
}

// Once reset, only blocks that either record knows are taken from the total.
TEST_F(TRACKER, KnowsABlockAfterAResetUnderWhicheverKindItIsReleased) {
  constexpr int rows[][2] = {{2, 6}, {2, 10}, {2, 18}, {2, 4}, {4, 2}, {8, 2}, {8, 14}, {14, 8}};
  void* before = (mem_enable_tracking(bits(8)), allocate_at<0>(500));
  mem_reset_tracking_entries();
  mem_disable_tracking(bits(8));
  for (const auto& [charged, released] : rows) {
    mem_enable_tracking(bits(charged));
    void* block = allocate_at<0>(20);
    EXPECT_EQ(mem_current_bytes, 32) << charged;
    mem_enable_tracking(bits(released));
    mem_disable_tracking(bits(charged & ~released));
    STAND_IN::release(block);
    EXPECT_EQ(mem_current_bytes, 0) << charged << " then " << released;
    mem_disable_tracking(bits(released));
  }
  mem_enable_tracking(bits(8));
  STAND_IN::release(before);
  EXPECT_EQ(mem_current_bytes, 0);
}

// What hosts do in the callback that hears of a peak, inside the tracker's accounting.
int calls_of_callback = 0;
bool callback_throws = false;

bool meddle(const char*, const char*, va_list) {
  errno = EIO;
  if (callback_throws) throw std::runtime_error("the host's own");
  if (++calls_of_callback > 2) return true;  // or it would never end
  mem_disable_tracking(bits(1));
  mem_enable_tracking(bits(1));
  mem_reset_tracking_entries();
  mem_unblock_thread_tracking();
  STAND_IN::release(STAND_IN::allocate(5000));
  return true;
}

TEST_F(TRACKER, StaysInsideItselfWhileACallbackMeddlesAndCountsTheEventOfOneThatThrows) {
  mem_enable_tracking(bits(1 | 2 | 8));
  for (const bool throws : {true, false}) {
    callback_throws = throws;
    const MEM_BASE_STATS before = mem_get_global_current();
    void* block = allocate_at<0>(throws ? 2000 : 8000);
    mem_set_msg_local_vdebug_callback(meddle);
    errno = 0;
    STAND_IN::release(block);
    EXPECT_EQ(errno, 0);
    mem_set_msg_local_vdebug_callback(nullptr);
    EXPECT_EQ(mem_get_global_current().count, before.count) << "throws " << throws;
  }
  EXPECT_EQ(calls_of_callback, 1);
  EXPECT_EQ(mem_abandoned_events, 0U);
}

TEST_F(TRACKER, CountsWhatABlockedThreadDoesAsItsOwnTraffic) {
  static char mapping;
  mem_enable_tracking(bits(1 | 8));
  EXPECT_FALSE(mem_block_thread_tracking());
  EXPECT_TRUE(mem_block_thread_tracking());
  std::thread([] { EXPECT_FALSE(mem_am_blocked()); }).join();
  void* kept = allocate_at<0>(20);
  STAND_IN::release(allocate_at<0>(100));
  mem_notify_memory_mapping_added(&mapping, 4096);
  const MEM_PROFILER_STATS& own = mem_profiler_stats;
  EXPECT_EQ(own.num_allocs, 3U);
  EXPECT_EQ(own.num_deallocs, 1U);
  EXPECT_EQ(own.requested_total, 20U + 100 + 4096);
  EXPECT_EQ(own.allocated_total, 32U + 112 + 4096);
  EXPECT_EQ(own.allocated_outstanding, 32U + 4096);
  mem_notify_memory_mapping_removed(&mapping, 4096);
  STAND_IN::release(kept);
  EXPECT_EQ(own.num_deallocs, 3U);
  EXPECT_EQ(own.allocated_freed, own.allocated_total);
  EXPECT_EQ(own.allocated_outstanding, 0U);
  EXPECT_TRUE(mem_unblock_thread_tracking());
  EXPECT_FALSE(mem_unblock_thread_tracking());
  EXPECT_EQ(mem_get_stats().global_peak.count, 0);
  EXPECT_EQ(mem_current_bytes, 0);
}

void call_everything() {
  MEM_ADDRESS_TRACKER site{};
  std::uint64_t bytes[3] = {};
  mem_enable_tracking(bits(127));
  STAND_IN::release(allocate_at<0>(5000));
  mem_open_profile_bin("bin", "tag");
  mem_close_profile_bin("tag", &bytes[0], &bytes[1], &bytes[2]);
  mem_set_timeline_label("label");
  mem_get_address_tracker(nullptr, site);
  mem_get_module_tracker("alpha", site);
  mem_tbb_tracking_flush_peak();
  mem_reset_tracking_entries();
  text_of(dump_all);
  {
    const std::lock_guard trace(mem_trace_lock);
    const std::lock_guard modules(mem_module_tracker_lock);
  }
  mem_cleanup_tbb_tracking();
}

// Another thread holds what it can while this one forks.
TEST_F(TRACKER, IsFreeInAForkedChildWhoeverWasInsideIt) {
  mem_enable_tracking(bits(127));
  std::atomic<bool> inside = false, done = false;
  std::thread holder([&] {
    const MEM_INSIDE_AS_CAT cat;
    const std::lock_guard trace(mem_trace_lock);
    const std::lock_guard modules(mem_module_tracker_lock);
    for (inside = true; !done;) std::this_thread::yield();
  });
  while (!inside) std::this_thread::yield();
  EXPECT_EXIT((alarm(20), call_everything(), std::_Exit(0)), testing::ExitedWithCode(0), "");
  done = true;
  holder.join();
}

// A signal handler may fork that has interrupted its own thread inside.
TEST_F(TRACKER, LetsAForkedChildFinishWhatItWasDoingInside) {
  mem_enable_tracking(bits(127));
  std::optional<MEM_INSIDE_AS_MOUSE> mouse(std::in_place);
  EXPECT_EXIT((alarm(20), mem_catch_all_site().cumulative_blocks += 1, mouse.reset(),
               call_everything(), std::_Exit(0)),
              testing::ExitedWithCode(0), "");
}

// Or while it waits to be the cat: the child has nobody to wait for.
TEST_F(TRACKER, LetsAForkedChildGoOnThatWaitedToGoIn) {
  static std::atomic<bool> forked = false;
  static pid_t child = -1;
  std::atomic<bool> inside = false;
  std::thread holder([&] {
    const MEM_INSIDE_AS_MOUSE mouse;
    for (inside = true; !forked;) std::this_thread::yield();
  });
  while (!inside) std::this_thread::yield();
  std::signal(SIGALRM, [](int) {
    child = fork();
    if (child == 0) std::signal(SIGALRM, SIG_DFL), alarm(20);
    forked = true;
  });
  ualarm(20'000, 0);
  { const MEM_INSIDE_AS_CAT cat; }
  { const MEM_INSIDE_AS_MOUSE back; }
  if (child == 0) call_everything(), std::_Exit(0);
  std::signal(SIGALRM, SIG_DFL);
  holder.join();
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// A signal handler may have interrupted a reset on its own thread.
TEST_F(TRACKER, DoesNothingForAHandlerOfTheThreadThatIsTheCat) {
  std::ostringstream out;
  MEM_ADDRESS_TRACKER site;
  alarm(20);
  const MEM_INSIDE_AS_CAT cat;
  const std::lock_guard trace(mem_trace_lock);
  EXPECT_FALSE(mem_dump_tbb_fileline_tracking(out));
  EXPECT_FALSE(mem_get_address_tracker(nullptr, site));
  mem_user_snapshot_tracking_data();
  mem_tbb_tracking_flush_peak();
}

[[gnu::noipa]] void map_a_page(void const* address) {
  mem_notify_memory_mapping_added(address, 4096);
  asm volatile("");  // no tail call
}

TEST_F(TRACKER, AccountsMappingsLikeBlocksOfTheNotifiersCaller) {
  static char mapping[2];
  mem_enable_tracking(bits(8));
  map_a_page(&mapping[0]);
  const auto caller = reinterpret_cast<std::uintptr_t>(site_of(&mapping[0]).address_info.address);
  EXPECT_LT(caller - reinterpret_cast<std::uintptr_t>(map_a_page), 256U) << "the site";
  UDM_BAREBONES_NOTIFIER::notify_added(&mapping[1], 1000);
  EXPECT_EQ(mem_current_bytes, 5096) << "not rounded";
  UDM_BAREBONES_NOTIFIER::notify_removed(&mapping[0], 4096);
  EXPECT_EQ(mem_current_bytes, 1000);
  mem_block_thread_tracking();
  mem_notify_memory_mapping_removed(&mapping[1], 1000);
  mem_unblock_thread_tracking();
  map_a_page(&mapping[1]);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(site_of(&mapping[1]).address_info.address), caller)
      << "its removal was not seen";
}

TEST_F(TRACKER, CreditsABinOnlyWithWhatItWasChargedWith) {
  static char mapping;
  mem_enable_tracking(bits(2 | 8));
  map_a_page(&mapping);
  mem_notify_memory_mapping_removed(&mapping, 4096);
  mem_disable_tracking(bits(2));
  map_a_page(&mapping);
  mem_enable_tracking(bits(2));
  mem_notify_memory_mapping_removed(&mapping, 4096);
  EXPECT_EQ((*mem_pbin_tracker)[0].current, 0);
}

TEST_F(TRACKER, CountsSmallBlocksThatAnotherThreadReleasesAsMismatched) {
  mem_enable_tracking(bits(8));
  void* const blocks[] = {allocate_at<0>(8128), allocate_at<0>(8129), allocate_at<0>(20)};
  std::thread([&] { STAND_IN::release(blocks[0]), STAND_IN::release(blocks[1]); }).join();
  EXPECT_EQ(site_of(blocks[2]).cumulative_mismatched_bytes, 8128U);
}

TEST_F(TRACKER, SuspendsOnlyTheChargingOfBinsForAScope) {
  mem_enable_tracking(bits(1 | 4 | 8));
  {
    const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT outer;
    { const MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT inner; }
    allocate_at<0>(20);
  }
  EXPECT_EQ(mem_get_current_bytes(), 0);
  EXPECT_EQ(mem_current_bytes, 32);
  EXPECT_EQ(mem_tracking_granularity, 1U | 4U | 8U);
}

// As a host's error reporter may, or a signal handler.
TEST_F(TRACKER, LetsAThreadEndTheProcessFromInsideIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child would not be tracked
  EXPECT_EXIT(
      {
        mem_enable_tracking(bits(8));
        alarm(20);  // a hang is a failure
        const MEM_INSIDE_AS_MOUSE inside;
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

[[gnu::noipa]] void* allocate_below(int depth) {
  void* block = depth == 0 ? STAND_IN::allocate(20) : allocate_below(depth - 1);
  asm volatile("");
  return block;
}

TEST_F(TRACKER, LooksDeeperOnlyWhenAFullShortTraceIsAllFiltered) {
  mem_enable_tracking(bits(8));
  // The first two addresses are those of the calls in allocate_below; each is asked about twice.
  m_symbolizer.frames_at = [asked = 0](void const*) mutable {
    errno = EIO;
    return FRAMES{frame("alpha", ++asked <= 2 * 2 ? "std::f" : "requester", "/f.cpp")};
  };
  errno = 0;
  EXPECT_STREQ(site_of(allocate_below(20)).address_info.function_name_buffer, "requester");
  EXPECT_EQ(site_of(allocate_below(11 + 50)).address_info.address, nullptr);
  EXPECT_EQ(errno, 0);
}

// All of a stack is looked through, again and again. After a reset its frames are judged anew: the
// report of filtered addresses is of what the records know.
TEST_F(TRACKER, PassesOverWhatItLooksThroughUntilAReset) {
  mem_enable_tracking(bits(8));
  m_symbolizer.frames_at = [](void const*) { return FRAMES{frame("alpha", "std::f", "/f.cpp")}; };
  std::size_t filtered[2] = {};
  for (std::size_t& rows : filtered) {
    mem_reset_tracking_entries();
    for (int again = 0; again < 3; ++again)
      EXPECT_EQ(site_of(allocate_below(30)).address_info.address, nullptr);
    const std::lock_guard trace(mem_trace_lock);
    mem_for_each_site([&](void const*, const MEM_ADDRESS_TRACKER& site) { rows += site.filtered; });
  }
  EXPECT_GT(filtered[0], 2U);
  EXPECT_EQ(filtered[0], filtered[1]);
}

// As when a plug-in is rebuilt, and the first one loaded again.
TEST_F(TRACKER, BringsARetiredSiteBackWhereItSaysTheSame) {
  int line = 0;
  m_symbolizer.frames_at = [&](void const*) { return FRAMES{frame("alpha", "f", "/f.cpp", line)}; };
  mem_enable_tracking(bits(8));
  for (const int loaded : {1, 2, 1}) {
    line = loaded;
    allocate_at<0>(20);
    const std::lock_guard trace(mem_trace_lock);
    mem_retire_sites(1, ~std::uintptr_t{0});
  }
  std::multimap<int, std::uint64_t> blocks;
  for (const auto& [address, site] : *mem_retired_sites)
    if (site.cumulative_blocks > 0) blocks.emplace(site.address_info.line, site.cumulative_blocks);
  EXPECT_THAT(blocks, testing::ElementsAre(testing::Pair(1, 2), testing::Pair(2, 1)));
}

// What is said of the total while others allocate may be a block off, but not a room.
TEST_F(TRACKER, KnowsTheTotalWhileAThreadClaimsRoomInIt) {
  MEM_SHARED_TOTAL total(&MEM_THREAD_LINE::byte_room);
  std::atomic<bool> done = false;
  const auto claimer = start_threads(1, [&](unsigned) {
    MEM_THREAD_LINE& line = mem_thread_line();
    for (int round = 0; round < 2'000'000; ++round) {
      total.add(line, 1, 1 << 20, 1);
      total.subtract(line, 1);
    }
    done = true;  // from here on the room is given up without the total
    line.byte_room = 0;
  });
  while (!done) {
    const std::int64_t seen = total;
    ASSERT_TRUE(done || seen == 0 || seen == 1) << seen;
  }
}

// Each block is released by whichever thread finds it. By site, the soak compares the figures.
TEST_F(TRACKER, BalancesWhileThreadsExchangeBlocksAndACatComesIn) {
  mem_enable_tracking(bits(1 | 4 | 8));
  std::atomic<void*> slots[64] = {};
  std::atomic<int> working = 8;
  auto workers = start_threads(8, [&](unsigned worker) {
    site_module = worker % 2 == 0 ? "even" : "odd";
    for (unsigned round = 0; round < 10000; ++round)
      if (void* old = slots[round * (2 * worker + 1) % 64].exchange(sites_at[round % 4](20)))
        STAND_IN::release(old);
    --working;
  });
  while (working > 0) {
    text_of(dump_all);
    const MEM_INSIDE_AS_CAT nothing_moves;
    EXPECT_EQ(sums_of(*mem_module_tracker_map), sums_of(*mem_address_tracker_map));
  }
  workers.clear();
  for (auto& slot : slots) STAND_IN::release(slot.exchange(nullptr));
  const std::pair<std::int64_t, std::uint64_t> expected(0, 8 * 10000 * 32);
  EXPECT_EQ(sums_of(*mem_address_tracker_map), expected);
  EXPECT_EQ(sums_of(*mem_module_tracker_map), expected);
  EXPECT_EQ(mem_current_bytes, 0);
  EXPECT_EQ(mem_get_global_current().bytes, 0);
  EXPECT_EQ(mem_get_global_current().count, 0);
}

}  // namespace
