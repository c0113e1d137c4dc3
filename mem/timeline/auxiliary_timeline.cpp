#include "mem/timeline/auxiliary_timeline.h"

#include <mutex>

#include "mem/base/static_storage.h"
#include "mem/info/proc_files.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_visit.h"

constinit mem_auxiliary_timeline_file_t* mem_auxiliary_timeline_file = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<mem_auxiliary_timeline_file_t> storage;

constexpr std::uint64_t unreadable = ~0ULL;

void read_faults(MEM_AUXILIARY_SAMPLE& sample) {
  MEM_LINUX_PROC_PID_STAT_T stat;
  const bool known = stat.read("mem_auxiliary_timeline_file_t::capture") == 0;
  sample.major_faults = known ? stat.major_faults : unreadable;
  sample.minor_faults = known ? stat.minor_faults : unreadable;
}

void read_sizes(MEM_AUXILIARY_SAMPLE& sample) {
  MEM_LINUX_PROC_PID_STATUS_T status;
  const bool known = status.read("mem_auxiliary_timeline_file_t::capture") == 0;
  const auto figure = [known](unsigned long long value) {
    return static_cast<std::uint32_t>(known ? value : unreadable);
  };
  sample.vm_size = figure(status.vm_size);
  sample.rss = figure(status.vm_rss);
  sample.vm_swap = figure(status.vm_swap);
  sample.threads = figure(status.threads);
}

void read_profiler(MEM_AUXILIARY_SAMPLE& sample) {
  sample.profiler_num_allocs = mem_profiler_stats.num_allocs;
  sample.profiler_num_deallocs = mem_profiler_stats.num_deallocs;
  sample.profiler_requested_total = mem_profiler_stats.requested_total;
  sample.profiler_requested_outstanding = mem_profiler_stats.requested_outstanding;
  sample.profiler_allocated_total = mem_profiler_stats.allocated_total;
  sample.profiler_allocated_outstanding = mem_profiler_stats.allocated_outstanding;
}

}  // namespace

MEM_AUXILIARY_SAMPLE mem_auxiliary_timeline_file_t::now() {
  MEM_AUXILIARY_SAMPLE sample;
  read_sizes(sample);
  read_faults(sample);
  read_profiler(sample);
  return sample;
}

void mem_auxiliary_timeline_file_t::capture() {
  const MEM_AUXILIARY_SAMPLE sample = now();
  const MEM_TRACKER_VISIT visit;
  if (visit && mem_auxiliary_timeline_file != nullptr) mem_auxiliary_timeline_file->append(sample);
}

void mem_auxiliary_timeline_file_t::append(const MEM_AUXILIARY_SAMPLE& sample) {
  const std::lock_guard lock(m_mutex);
  m_samples.push_back(sample);
  mem_add_to_reserve(3 * sizeof(MEM_AUXILIARY_SAMPLE));  // a copy, and room for the last
}

mem_auxiliary_timeline_file_t::SAMPLES mem_auxiliary_timeline_file_t::samples() {
  const std::lock_guard lock(m_mutex);
  return m_samples;
}

constinit const MEM_PART mem_auxiliary_timeline_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_auxiliary_timeline_file = storage.construct(); }},
    MEM_RESET{mem_nothing},  // a timeline spans resets
    MEM_FREE{[] { mem_destroy(mem_auxiliary_timeline_file); }},
    MEM_ABANDON{[] { mem_abandon(mem_auxiliary_timeline_file); }});
