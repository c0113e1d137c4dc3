// What threads add up with rooms of their own, held against plain counters.
#include <deque>
#include <random>
#include <semaphore>

#include "mem/settings/tuning.h"
#include "mem/state/cat_mouse_lock.h"
#include "mem/state/totals.h"
#include "mem/tracker/peaks.h"
#include "tests/support/threads.h"
#include "tests/support/tracked_sites.h"

namespace {

constexpr std::int64_t period = 1000;
constexpr std::int64_t step = 1 << 20;

struct PLAIN_COUNTERS {
  std::int64_t events, bytes, next_peak;
  std::uint64_t samples;
  auto all() const { return std::tuple(events, bytes, next_peak, samples); }

  static PLAIN_COUNTERS of_tracker() {
    return {mem_snapshot_count, mem_current_bytes, mem_next_peak(), mem_estimated_timeline_idx};
  }
  void count(std::int64_t amount) {
    const bool peak = amount < 0 && bytes >= next_peak;
    if (peak) next_peak = std::min(2 * bytes, (bytes / step + 1) * step);
    if (events % period == 0 || peak) ++samples;
    ++events;
    bytes += amount;
  }
};

class TURNS : public TRACKER {
 protected:
  TURNS() {
    mem_enable_tracking(bits(8));
    setenv("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "1000", 1);
    setenv("KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD", "1", 1);
    setenv("mem_profile_fileline_peak_snapshot_threshold", "1048576", 1);
    mem_read_snapshot_settings();
    const MEM_INSIDE_AS_CAT cat;
    mem_snapshot_count.settle();
  }

  // Blocks are released by whichever thread's turn it is; now more are allocated, now fewer.
  void take_turn() {
    for (auto left = 1 + m_random() % 50; left > 0 && !HasFailure(); --left) {
      const bool grows = m_plain.events % 5000 < 3000;
      if (m_blocks.empty() || m_random() % 8 < (grows ? 5 : 3)) {
        m_blocks.push_back({.size = std::size_t{16} << m_random() % 12});
        m_plain.count(static_cast<std::int64_t>(m_blocks.back().size));
        m_blocks.back().block = allocate_at<0>(m_blocks.back().size);
      } else {
        std::swap(m_blocks.back(), m_blocks[m_random() % m_blocks.size()]);
        m_plain.count(-static_cast<std::int64_t>(m_blocks.back().size));
        STAND_IN::release(m_blocks.back().block);
        m_blocks.pop_back();
      }
      ASSERT_EQ(PLAIN_COUNTERS::of_tracker().all(), m_plain.all());
      m_had_rooms |= mem_snapshot_count.claimed() > m_plain.events ? 1 : 0;
      m_had_rooms |= mem_current_bytes.claimed() > m_plain.bytes ? 2 : 0;
    }
  }

  struct BLOCK {
    std::size_t size;
    void* block = nullptr;
  };
  PLAIN_COUNTERS m_plain{};
  std::vector<BLOCK> m_blocks;
  std::minstd_rand m_random;
  int m_had_rooms = 0;
};

// Of 300 threads some have no line of their own.
TEST_F(TURNS, SampleAndPeakAtTheVeryEventOfPlainCounters) {
  for (const unsigned thread_count : {1U, 3U, 300U}) {
    m_plain = PLAIN_COUNTERS::of_tracker();
    std::deque<std::binary_semaphore> turns;
    std::binary_semaphore is_over(0);
    bool all_over = false;
    for (unsigned thread = 0; thread < thread_count; ++thread) turns.emplace_back(0);
    auto threads = start_threads(thread_count, [&](unsigned number) {
      for (turns[number].acquire(); !all_over; turns[number].acquire()) {
        take_turn();
        is_over.release();
      }
    });
    for (int turn = 0; turn < 1000; ++turn) {
      turns[m_random() % thread_count].release();
      is_over.acquire();
    }
    all_over = true;
    for (std::binary_semaphore& turn : turns) turn.release();
    threads.clear();
    EXPECT_EQ(m_had_rooms, 1 | 2) << thread_count << " threads";
  }
}

}  // namespace
