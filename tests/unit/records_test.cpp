// The cat-and-mouse lock and the queries that copy a record out.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "include/tuk_mem.h"
#include "mem/records/cat_mouse_lock.h"
#include "mem/state/tracker_state.h"

namespace {

constexpr int mouse = CAT_MOUSE_LOCK_A::MOUSE;
constexpr int cat = CAT_MOUSE_LOCK_A::CAT;

TEST(CatMouseLockDeathTest, LeavingAsWhatOneIsNotIsAnInternalError) {
  CAT_MOUSE_LOCK_A lock;
  EXPECT_DEATH(lock.P(cat), "MEM: cats == 0 \\(mem/mem_tbb_tracker:");
  EXPECT_DEATH(lock.P(mouse), "MEM: mice >= 0 \\(mem/mem_tbb_tracker:");
  lock.V(mouse);
  EXPECT_DEATH(lock.P(cat), "MEM: mice == 0 \\(mem/mem_tbb_tracker:");
  lock.P(mouse);
  lock.V(cat);
  EXPECT_DEATH(lock.P(mouse), "MEM: cats == 0 \\(mem/mem_tbb_tracker:");
}

TEST(CatMouseLock, MiceAreInsideTogetherAndACatIsAlone) {
  CAT_MOUSE_LOCK_A lock;
  std::atomic<int> violations = 0;
  std::atomic<int> mice = 0;
  int cats_work = 0;  // odd while a cat is inside
  const auto enter = [&](int kind, int rounds, auto work) {
    for (int round = 0; round < rounds; ++round) lock.V(kind), work(), lock.P(kind);
  };
  const auto be_mouse = [&] {
    enter(mouse, 1000, [&] {
      ++mice;
      violations += cats_work % 2;
      std::this_thread::yield();
      --mice;
    });
  };
  const auto be_cat = [&] {
    enter(cat, 300, [&] { ++cats_work, violations += mice, ++cats_work; });
  };
  lock.V(mouse);
  std::thread(be_mouse).join();  // would wait forever for this mouse to leave
  lock.P(mouse);
  std::thread threads[] = {std::thread(be_mouse), std::thread(be_cat), std::thread(be_mouse),
                           std::thread(be_cat)};
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(violations, 0);
  EXPECT_EQ(cats_work, 2 * 2 * 300);
}

TEST(QueryDeathTest, KnowsTheCatchAllButNoUnknownBlockAndNeedsTheTracker) {
  MEM_ADDRESS_TRACKER site{};
  MEMORY_TRACKER_BASE module{};
  EXPECT_TRUE(mem_get_address_tracker(nullptr, site));
  EXPECT_NE(site.module, nullptr);
  EXPECT_FALSE(mem_get_address_tracker(&site, site));
  EXPECT_TRUE(mem_get_module_tracker("OTHER", module));
  EXPECT_FALSE(mem_get_module_tracker("other", module));
  mem_tbb_tracker_inited = false;
  const char* error = "MEM: mem_tbb_tracker_is_inited\\(\\) \\(mem/mem_tbb_tracker:";
  EXPECT_DEATH(mem_get_address_tracker(nullptr, site), error);
  EXPECT_DEATH(mem_get_module_tracker("OTHER", module), error);
}

}  // namespace
