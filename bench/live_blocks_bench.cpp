// What remembering and forgetting a live block costs, by the number of blocks that stay alive.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "mem/records/live_blocks.h"

namespace {

MEM_ADDRESS_TRACKER site{};

// Addresses as an allocator hands them out: 16 bytes apart and in runs. Each thread has its own.
void const* nth_block(int thread, long index) {
  constexpr std::uintptr_t block_size = 48;
  return reinterpret_cast<void const*>((static_cast<std::uintptr_t>(thread + 1) << 40) +
                                       block_size * static_cast<std::uintptr_t>(index));
}

// One insertion and one erasure at a time: the oldest of the live blocks makes room for a new one.
void insert_and_erase(benchmark::State& state) {
  const int thread = state.thread_index();
  const long live = state.range(0);
  long oldest = 0;
  for (long index = 0; index < live; ++index)
    mem_remember_block(nth_block(thread, index), &site, true);
  for (auto _ : state) {
    mem_remember_block(nth_block(thread, oldest + live), &site, true);
    benchmark::DoNotOptimize(mem_take_block(nth_block(thread, oldest)));
    ++oldest;
  }
  for (long index = oldest; index < oldest + live; ++index)
    mem_take_block(nth_block(thread, index));
}
BENCHMARK(insert_and_erase)
    ->ArgName("live")
    ->RangeMultiplier(10)
    ->Range(10, 1'000'000)
    ->Threads(1)
    ->Threads(2)
    ->UseRealTime();

// A release of a block from before tracking.
void take_unknown(benchmark::State& state) {
  long index = 0;
  for (auto _ : state) benchmark::DoNotOptimize(mem_take_block(nth_block(100, ++index)));
}
BENCHMARK(take_unknown);

}  // namespace
