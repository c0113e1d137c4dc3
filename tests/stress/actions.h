// What a host's threads may do at any moment.
#pragma once

#include <cstdlib>
#include <string>

#include "tests/support/dumps.h"

/// All but what may only be done on one thread, and what changes the figures of blocks.
inline constexpr void (*actions[])() = {
    [] { text_of(dump_all); },
    [] { mem_set_timeline_label(std::to_string(std::rand() % 10)); },
    [] {
      static thread_local char mapping;
      mem_notify_memory_mapping_added(&mapping, 1 << 20);
      mem_notify_memory_mapping_removed(&mapping, 1 << 20);
    },
    mem_tbb_tracking_flush_peak,
    mem_user_snapshot_tracking_data,
};

/// One kind of `kinds`, picked at random.
template <std::size_t COUNT>
void switch_off_and_on(const int (&kinds)[COUNT]) {
  const auto kind =
      static_cast<MEM_TRACKING_GRANULARITY>(kinds[static_cast<std::size_t>(std::rand()) % COUNT]);
  mem_disable_tracking(kind);
  mem_enable_tracking(kind);
}
