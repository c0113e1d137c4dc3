// A host in several scenarios; the first argument picks one.
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <thread>
#include <vector>

#include "include/tuk_mem.h"
#include "platform/thr_thread.h"
#include "tests/integration/programs/books.h"
#include "tests/integration/programs/run_scenario.h"

namespace {

void give_back(void* block) {
  note_release(block, 0);
  std::free(block);
}

// Leaves 3 x 112 + 1 x 1024 bytes behind.
void leak() {
  mem_set_tbb_exe_string("leaky");
  std::array<void*, 5> blocks{};
  for (void*& block : blocks) block = NOTE(std::malloc(100), 100);
  give_back(blocks[0]);
  give_back(blocks[3]);
  NOTE(std::malloc(1000), 1000);
  give_back(NOTE(std::malloc(77), 77));
}

// A block from before tracking is credited to the catch-all.
void start_late() {
  void* volatile early = std::malloc(1000);
  mem_enable_tracking(MEM_TRACK_PER_FILELINE);
  std::free(early);
  mem_disable_tracking(MEM_TRACK_PER_FILELINE);
  MEM_ADDRESS_TRACKER catch_all{};
  mem_get_address_tracker(nullptr, catch_all);
  std::printf("%lld %d\n", static_cast<long long>(catch_all.current_bytes),
              static_cast<int>(catch_all.current_blocks));
}

// Allocations on new lines after the symbolizer's tools have been ended, and a second shutdown.
struct ALLOCATES_AT_EXIT {
  ALLOCATES_AT_EXIT() = default;
  ALLOCATES_AT_EXIT(const ALLOCATES_AT_EXIT&) = delete;
  ALLOCATES_AT_EXIT& operator=(const ALLOCATES_AT_EXIT&) = delete;
  ~ALLOCATES_AT_EXIT() {
    if (armed) give_back(NOTE(std::malloc(123), 123));
    if (armed) print_books();
  }
  bool armed = false;
} allocates_at_exit;

void end_twice() {
  allocates_at_exit.armed = true;
  NOTE(std::malloc(10), 10);
  std::atexit([] { give_back(NOTE(std::malloc(20), 20)); });
}

void shut_down_twice() {
  NOTE(std::malloc(1000), 1000);
  mem_shutdown_tbb_tracking();
  mem_enable_tracking(MEM_TRACK_PER_FILELINE);
  std::free(std::malloc(5000));
}

// Eight threads pass blocks around a ring while a ninth reads every record.
constexpr int ring_size = 8;
constexpr int blocks_per_thread = 20000;
std::array<std::atomic<void*>, ring_size> ring;

void* pass_blocks(void* argument) {
  const auto own = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(argument));
  for (int i = 0; i < blocks_per_thread; ++i) {
    void* block = std::malloc(16 + static_cast<std::size_t>(i % 7) * 100);
    std::free(ring[(own + static_cast<std::size_t>(i)) % ring_size].exchange(block));
  }
  return nullptr;
}

void run_threads() {
  std::atomic<bool> done{false};
  std::thread cat([&] {
    while (!done) {
      std::ostringstream reports;
      mem_dump_tbb_fileline_tracking(reports);
      mem_dump_tbb_subsystem_tracking(reports);
    }
  });
  std::array<pthread_t, ring_size> threads{};
  for (std::size_t i = 0; i < ring_size; ++i)
    thr_thread_create(&threads[i], pass_blocks, reinterpret_cast<void*>(i));
  for (const pthread_t thread : threads) thr_thread_join(thread, nullptr);
  for (auto& slot : ring) std::free(slot.exchange(nullptr));
  done = true;
  cat.join();
}

constexpr SCENARIO scenarios[] = {
    {"leak", leak},
    {"start_late", start_late},
    {"end_twice", end_twice},
    {"shut_down_twice", shut_down_twice},
    {"run_threads", run_threads},
};

}  // namespace

int main(int count, char** arguments) {
  const int status = run_scenario(scenarios, count, arguments);
  if (!allocates_at_exit.armed) print_books();
  return status;
}
