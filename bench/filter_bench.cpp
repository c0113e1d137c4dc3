// What reducing a captured stack to its site costs once every address is known.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <mutex>

#include "mem/records/site_map.h"
#include "mem/stack/stack_filter.h"
#include "mem/stack/unwinder.h"

namespace {

// No code lies there: nothing else in the process adds records under these addresses.
constexpr std::uintptr_t first_address = 0x1000;
constexpr std::uintptr_t address_step = 0x13;  // calls lie this close together in real code

void const* nth_address(long index) {
  return reinterpret_cast<void const*>(first_address +
                                       address_step * static_cast<std::uintptr_t>(index));
}

constexpr int longest_trace = 11;

void add_known(long index, bool filtered) {
  MEM_ADDRESS_TRACKER record{};
  record.address_info.address = nth_address(index);
  record.filtered = filtered;
  mem_address_tracker_map->insert_or_assign(nth_address(index), record);
}

// Every trace has `rejected` frames of its own before the one that is kept; the traces take turns
// over `known` addresses.
void filter_known(benchmark::State& state) {
  const long rejected = state.range(0);
  const long known = state.range(1);
  const long trace_length = rejected + 1;
  std::unique_lock lock(mem_trace_lock);
  mem_address_tracker_map->clear();
  for (long index = 0; index < known; ++index) add_known(index, index % trace_length != rejected);

  void const* frames[longest_trace];
  long next = 0;
  for (auto _ : state) {
    if (next + trace_length > known) next = 0;
    for (long frame = 0; frame < trace_length; ++frame) frames[frame] = nth_address(next++);
    benchmark::DoNotOptimize(mem_filter_stack_trace(frames, static_cast<int>(trace_length), lock));
  }
}
BENCHMARK(filter_known)
    ->ArgNames({"rejected", "known"})
    ->ArgsProduct({{0, 2, 5, 10}, {16, 1'000, 100'000}});

}  // namespace
