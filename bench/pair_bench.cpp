// What one allocation and its release cost with each kind of tracking, under the real allocator.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>

#include "tuk_mem.h"

namespace {

constexpr std::size_t block_size = 64;

[[gnu::noinline]] void allocate_and_free() {
  void* block = std::malloc(block_size);
  benchmark::DoNotOptimize(block);
  std::free(block);
  benchmark::ClobberMemory();
}

[[gnu::noinline]] void descend(long more) {
  if (more > 0)
    descend(more - 1);
  else
    allocate_and_free();
  benchmark::ClobberMemory();
}

// The first thread switches; Google Benchmark lets all of them begin and end the loop together.
void pair(benchmark::State& state) {
  const auto tracked = static_cast<MEM_TRACKING_GRANULARITY>(state.range(0));
  const long frames = state.range(1);
  if (state.thread_index() == 0) mem_enable_tracking(tracked);
  for (auto _ : state) descend(frames);
  if (state.thread_index() == 0) mem_disable_tracking(tracked);
}

void every_kind(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"tracked", "frames"});
  for (const std::int64_t kind :
       {MEM_TRACK_NONE, MEM_TRACK_PER_BIN, MEM_TRACK_PER_BIN_DETAILED, MEM_TRACK_PER_LIBRARY,
        MEM_TRACK_PER_FILELINE, MEM_TRACK_LEAKS, MEM_TRACK_LEAKS_FAST, MEM_TRACK_AUXILIARY_TIMELINE,
        MEM_TRACK_ALL})
    benchmark->Args({kind, 4});
}
BENCHMARK(pair)->Apply(every_kind)->Threads(1)->Threads(2)->UseRealTime();

// How the depth of the stack tells.
BENCHMARK(pair)
    ->ArgNames({"tracked", "frames"})
    ->ArgsProduct({{MEM_TRACK_PER_FILELINE}, {0, 8, 16, 48}});

}  // namespace
