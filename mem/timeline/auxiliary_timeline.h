// The process's own figures, and what profiling itself costs, at every sample.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include <cstdint>
#include <vector>

#include "mem/base/bookkeeping.h"

/// A field whose file could not be read has all bits set.
struct MEM_AUXILIARY_SAMPLE {
  std::uint64_t profiler_num_allocs;
  std::uint64_t profiler_num_deallocs;
  std::uint64_t profiler_requested_total;
  std::uint64_t profiler_requested_outstanding;
  std::uint64_t profiler_allocated_total;
  std::uint64_t profiler_allocated_outstanding;
  std::uint64_t major_faults;
  std::uint64_t minor_faults;
  std::uint32_t vm_size;  ///< kB
  std::uint32_t rss;      ///< kB
  std::uint32_t vm_swap;  ///< kB
  std::uint32_t threads;
};

class mem_auxiliary_timeline_file_t {
 public:
  using SAMPLES =
      std::vector<MEM_AUXILIARY_SAMPLE, MEM_BOOKKEEPING_ALLOCATOR<MEM_AUXILIARY_SAMPLE>>;

  /// Reads the figures and appends a sample.
  void capture();
  /// Forgets every sample.
  void clear();
  /// A copy of what has been sampled so far.
  SAMPLES samples();

 private:
  tbb::spin_mutex m_mutex;
  SAMPLES m_samples;
};

/// Null before initialisation; from then to the end of the process. Cleanup empties it.
extern mem_auxiliary_timeline_file_t* mem_auxiliary_timeline_file;

void mem_create_auxiliary_timeline();
