// The counters of profile bins and tags.
#include "include/tuk_mem.h"
#include "mem/base/host_thread.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"
#include "mem/state/tracker_visit.h"

namespace {

using ROW = MEM_BIN_FIGURES::ROW;

// Bins, or tags.
struct KIND {
  char const* title;
  const MEM_BOOKKEEPING_STRING& (*name)(std::uint32_t id);
};

constexpr KIND bins = {"Memory Tracking - Profile Bin Stats",
                       MEM_USER_MEMORY_TRACKER::pbin_id_to_string};
constexpr KIND tags = {"Memory Tracking - Profile Tag Stats",
                       MEM_USER_MEMORY_TRACKER::profile_tag_id_to_string};

// Rows cover the entries that there are now.
MEM_BIN_FIGURES figures_of(MEM_PBIN_TRACKER_MAP* const& counters) {
  MEM_BIN_FIGURES figures;
  const MEM_TRACKER_VISIT visit;
  if (!visit || counters == nullptr) return figures;
  figures.rows.resize(counters->size());
  for (std::uint32_t id = 0; id < figures.rows.size(); ++id) {
    const MEM_PBIN_TRACKER_ENTRY& entry = (*counters)[id];
    figures.rows[id] = {entry.max, entry.peak, entry.cumulative, entry.current, entry.flushed_peak};
  }
  return figures;
}

void print_bytes(MEM_REPORT_TEXT& out, std::int64_t bytes) { out << bytes; }

void print_mib(MEM_REPORT_TEXT& out, std::int64_t bytes) {
  constexpr double mib_per_byte = 9.5367431640625e-7;
  constexpr int decimals = 3;
  const MEM_FLOATING_POINT_KEPT host_floating_point;
  out.fixed(static_cast<double>(bytes) * mib_per_byte, decimals);
}

void write_rows(MEM_REPORT_TEXT& out, const KIND& kind, const MEM_BIN_FIGURES& figures,
                void (*print)(MEM_REPORT_TEXT&, std::int64_t)) {
  const MEM_USER_MEMORY_TRACKER::IN_USE names;
  std::uint32_t id = 0;
  for (const ROW& row : figures.rows) {
    out << kind.name(id++);
    for (const std::int64_t figure : {row.max, row.peak, row.cumulative, row.current}) {
      out << '\t';
      print(out, figure);
    }
    out << '\n';
  }
  out.flush();
}

void write_bytes(MEM_TEXT_SINK& sink, const KIND& kind, const MEM_BIN_FIGURES& figures) {
  MEM_REPORT_TEXT out(sink);
  out << kind.title << "\n\n"
      << "Name\tMax bytes\tPeak bytes\tCumulative bytes\tCurrent bytes\n";
  write_rows(out, kind, figures, print_bytes);
}

void write_mib(MEM_TEXT_SINK& sink, const KIND& kind, const MEM_BIN_FIGURES& figures) {
  MEM_REPORT_TEXT out(sink);
  out << kind.title << " (MiB)\n\n"
      << "Name\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n";
  write_rows(out, kind, figures, print_mib);
}

bool dump(std::ostream& stream, const KIND& kind, MEM_BIN_FIGURES (*figures)()) {
  if (mem_visit_is_refused()) return false;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const MEM_USER_MEMORY_TRACKER::IN_USE names;
  MEM_STREAM_SINK sink(stream);
  write_bytes(sink, kind, figures());
  return true;
}

}  // namespace

MEM_BIN_FIGURES MEM_BIN_FIGURES::of_bins() { return figures_of(mem_pbin_tracker); }
MEM_BIN_FIGURES MEM_BIN_FIGURES::of_tags() { return figures_of(mem_pbin_tag_tracker); }

bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out) {
  return dump(out, bins, MEM_BIN_FIGURES::of_bins);
}
bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out) {
  return dump(out, tags, MEM_BIN_FIGURES::of_tags);
}
void mem_write_bin_stats(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& figures) {
  write_bytes(sink, bins, figures);
}
void mem_write_tag_stats(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& figures) {
  write_bytes(sink, tags, figures);
}
void mem_write_bin_stats_in_mib(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& figures) {
  write_mib(sink, bins, figures);
}
void mem_write_tag_stats_in_mib(MEM_TEXT_SINK& sink, const MEM_BIN_FIGURES& figures) {
  write_mib(sink, tags, figures);
}
