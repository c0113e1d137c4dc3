// The process's own figures, and what profiling itself costs, at every sample.
#pragma once

#include <cstdint>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"

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

  /// Reads the figures, then appends a sample inside the tracker's lock: the files are read
  /// outside. Nothing once the timeline is gone, or on a thread that is inside already.
  static void capture();
  /// The figures of this moment. Not inside the tracker's lock.
  static MEM_AUXILIARY_SAMPLE now();
  /// A copy of what has been sampled so far. Inside the tracker's lock.
  SAMPLES samples();

 private:
  void append(const MEM_AUXILIARY_SAMPLE& sample);

  MEM_SPIN_LOCK<MEM_LOCK_ORDER::AUXILIARY> m_mutex;
  SAMPLES m_samples;
};

/// From initialisation to cleanup.
extern mem_auxiliary_timeline_file_t* mem_auxiliary_timeline_file;
extern const MEM_PART mem_auxiliary_timeline_part;
