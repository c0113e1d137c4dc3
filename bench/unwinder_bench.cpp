// What capturing a stack costs, by unwinder, by depth of the stack and by frames asked for.
#include <benchmark/benchmark.h>

#include "platform/err_unwinder.h"

namespace {

// As the accounting captures: a short walk, and a deep one behind it when that found nothing.
constexpr int ignore_depth = 5;
constexpr int short_trace = 11;
constexpr int deep_trace = 50;

void measure(benchmark::State& state, ERR_UNWINDER& unwinder, int max_frames, int skip) {
  void const* frames[deep_trace];
  int count = 0;
  for (auto _ : state) {
    count = unwinder.capture(frames, max_frames, skip, 0);
    benchmark::DoNotOptimize(frames);
  }
  state.counters["frames"] = count;
}

[[gnu::noinline]] void descend(benchmark::State& state, ERR_UNWINDER& unwinder, int max_frames,
                               int skip, long more) {
  if (more > 0)
    descend(state, unwinder, max_frames, skip, more - 1);
  else
    measure(state, unwinder, max_frames, skip);
  benchmark::ClobberMemory();
}

void capture(benchmark::State& state, char const* name, int max_frames, int skip) {
  ERR_UNWINDER* unwinder = ERR_UNWINDER::get_unwinder(name);
  if (unwinder == nullptr)
    state.SkipWithError("no such unwinder");
  else
    descend(state, *unwinder, max_frames, skip, state.range(0));
}

// The argument: frames added to the stack of the benchmark itself.
constexpr long depths[] = {0, 5, 20, 80};

#define FOR_ALL_DEPTHS ArgsProduct({{depths, depths + std::size(depths)}})

BENCHMARK_CAPTURE(capture, eh_frame_short, "eh_frame_internal", short_trace, ignore_depth)
    ->FOR_ALL_DEPTHS;
BENCHMARK_CAPTURE(capture, eh_frame_deep, "eh_frame_internal", deep_trace,
                  ignore_depth + short_trace)
    ->FOR_ALL_DEPTHS;
BENCHMARK_CAPTURE(capture, backtrace_short, "backtrace", short_trace, ignore_depth)->FOR_ALL_DEPTHS;
BENCHMARK_CAPTURE(capture, backtrace_deep, "backtrace", deep_trace, ignore_depth + short_trace)
    ->FOR_ALL_DEPTHS;
BENCHMARK_CAPTURE(capture, tester_short, "tester", short_trace, ignore_depth)->FOR_ALL_DEPTHS;

}  // namespace
