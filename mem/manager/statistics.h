// The global allocation statistics. Relies on mem/base.
#pragma once

#include <atomic>

#include "include/tuk_mem.h"

/// A statistics record that many threads update at once.
struct MEM_ATOMIC_STATS {
  std::atomic<std::int64_t> bytes{0};
  std::atomic<std::int64_t> count{0};

  MEM_BASE_STATS read() const noexcept;
  void store(const MEM_BASE_STATS& stats) noexcept;
  /// Raises each field on its own to the value given, if that is larger.
  void raise(const MEM_BASE_STATS& stats) noexcept;
};

/// Zero at load and again during static initialisation.
struct MEM_PBIN_STATS {
  MEM_ATOMIC_STATS global_current;
  MEM_ATOMIC_STATS global_peak;
  MEM_ATOMIC_STATS local_peak;

  /// Accounts one block of `bytes` and raises both peaks.
  void add_block(std::int64_t bytes) noexcept;
  void remove_block(std::int64_t bytes) noexcept;
  void reset() noexcept;
};

extern MEM_PBIN_STATS mem_pbin_stats;
