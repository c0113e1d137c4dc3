// The timeline of the process's own figures.
#include "mem/base/host_thread.h"
#include "mem/report/dump_timing.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"
#include "mem/timeline/auxiliary_timeline.h"

namespace {

constexpr std::uint64_t bytes_per_kb = 1024;

using SAMPLE = MEM_AUXILIARY_SAMPLE;

struct COLUMN {
  char const* title;
  void (*print)(MEM_REPORT_TEXT& out, const SAMPLE& sample);
};

template <auto FIELD>
void print_field(MEM_REPORT_TEXT& out, const SAMPLE& sample) {
  out << sample.*FIELD;
}

template <auto FIELD>
void print_kb_as_bytes(MEM_REPORT_TEXT& out, const SAMPLE& sample) {
  out << sample.*FIELD * bytes_per_kb;
}

void print_rss_percentage(MEM_REPORT_TEXT& out, const SAMPLE& sample) {
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  const float percentage =
      static_cast<float>(sample.rss) * 100.0F / static_cast<float>(sample.vm_size);
  out << (sample.vm_size == 0 ? 0.0 : static_cast<double>(percentage));
}

// Signed: blocks from before a thread was blocked are released as its, and a release tells only the
// allocated size, which is subtracted as the requested one too.
template <auto FIELD>
void print_outstanding(MEM_REPORT_TEXT& out, const SAMPLE& sample) {
  out << static_cast<std::int64_t>(sample.*FIELD);
}

void print_blocks_outstanding(MEM_REPORT_TEXT& out, const SAMPLE& sample) {
  out << static_cast<std::int64_t>(sample.profiler_num_allocs - sample.profiler_num_deallocs);
}

constexpr COLUMN columns[] = {
    {"nthreads", print_field<&SAMPLE::threads>},
    {"VmSize", print_kb_as_bytes<&SAMPLE::vm_size>},
    {"RSS", print_kb_as_bytes<&SAMPLE::rss>},
    {"rss_percentage", print_rss_percentage},
    {"VmSwap", print_kb_as_bytes<&SAMPLE::vm_swap>},
    {"major_faults", print_field<&SAMPLE::major_faults>},
    {"minor_faults", print_field<&SAMPLE::minor_faults>},
    {"profiler_num_allocs", print_field<&SAMPLE::profiler_num_allocs>},
    {"profiler_num_deallocs", print_field<&SAMPLE::profiler_num_deallocs>},
    {"profiler_num_outstanding", print_blocks_outstanding},
    {"profiler_requested_total", print_field<&SAMPLE::profiler_requested_total>},
    {"profiler_requested_outstanding", print_outstanding<&SAMPLE::profiler_requested_outstanding>},
    {"profiler_allocated_total", print_field<&SAMPLE::profiler_allocated_total>},
    {"profiler_allocated_outstanding", print_outstanding<&SAMPLE::profiler_allocated_outstanding>},
};

}  // namespace

void mem_write_auxiliary_timeline(MEM_TEXT_SINK& sink,
                                  const mem_auxiliary_timeline_file_t::SAMPLES& samples) {
  const MEM_DUMP_TIMING timing;
  MEM_REPORT_TEXT out(sink);
  out << "MEM: TBB Auxiliary Timeline\n\n";
  for (const COLUMN& column : columns) out << (&column == columns ? "" : "\t") << column.title;
  out << '\n';
  for (const SAMPLE& sample : samples) {
    for (const COLUMN& column : columns) {
      if (&column != columns) out << '\t';
      column.print(out, sample);
    }
    out << '\n';
  }
  timing.write(out);
  out.flush();
}
