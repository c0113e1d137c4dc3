// The counters of profile bins and tags.
#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/report/report_text.h"
#include "mem/report/shutdown_reports.h"
#include "mem/state/tracker_visit.h"

namespace {

struct KIND {
  char const* title;
  MEM_PBIN_TRACKER_MAP* const* counters;
  const MEM_BOOKKEEPING_STRING& (*name)(std::uint32_t id);
};

constexpr KIND bins = {"Memory Tracking - Profile Bin Stats", &mem_pbin_tracker,
                       MEM_USER_MEMORY_TRACKER::pbin_id_to_string};
constexpr KIND tags = {"Memory Tracking - Profile Tag Stats", &mem_pbin_tag_tracker,
                       MEM_USER_MEMORY_TRACKER::profile_tag_id_to_string};

// Not in the order of the fields: readers of the tables know this one.
constexpr std::atomic<std::int64_t> MEM_PBIN_TRACKER_ENTRY::*columns[] = {
    &MEM_PBIN_TRACKER_ENTRY::max, &MEM_PBIN_TRACKER_ENTRY::peak,
    &MEM_PBIN_TRACKER_ENTRY::cumulative, &MEM_PBIN_TRACKER_ENTRY::current};

void print_bytes(MEM_REPORT_TEXT& out, std::int64_t bytes) { out << bytes; }

void print_mib(MEM_REPORT_TEXT& out, std::int64_t bytes) {
  constexpr double mib_per_byte = 9.5367431640625e-7;
  constexpr int decimals = 3;
  out.fixed(static_cast<double>(bytes) * mib_per_byte, decimals);
}

// The figures of one id, in the order of the columns.
using ROW = std::array<std::int64_t, std::size(columns)>;
using ROWS = std::vector<ROW, MEM_BOOKKEEPING_ALLOCATOR<ROW>>;

// Rows cover the entries that there are now. One may hold figures of two moments.
ROWS rows_of(const KIND& kind) {
  ROWS rows;
  const MEM_TRACKER_VISIT visit;
  const MEM_PBIN_TRACKER_MAP* counters = *kind.counters;
  if (!visit || counters == nullptr) return rows;
  rows.resize(counters->size());
  for (std::uint32_t id = 0; id < rows.size(); ++id)
    std::transform(std::begin(columns), std::end(columns), rows[id].begin(),
                   [&](auto column) { return ((*counters)[id].*column).load(); });
  return rows;
}

void write_rows(MEM_REPORT_TEXT& out, const KIND& kind,
                void (*print)(MEM_REPORT_TEXT&, std::int64_t)) {
  const MEM_USER_MEMORY_TRACKER::IN_USE names;
  std::uint32_t id = 0;
  for (const ROW& row : rows_of(kind)) {
    out << kind.name(id++);
    for (const std::int64_t figure : row) {
      out << '\t';
      print(out, figure);
    }
    out << '\n';
  }
}

bool write_bytes(std::ostream& stream, const KIND& kind) {
  if (mem_visit_is_refused()) return false;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  MEM_REPORT_TEXT out(stream);
  out << kind.title << "\n\n"
      << "Name\tMax bytes\tPeak bytes\tCumulative bytes\tCurrent bytes\n";
  write_rows(out, kind, print_bytes);
  out.flush();
  return true;
}

void write_mib(std::ostream& stream, const KIND& kind) {
  MEM_REPORT_TEXT out(stream);
  out << kind.title << " (MiB)\n\n"
      << "Name\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n";
  write_rows(out, kind, print_mib);
  out.flush();
}

}  // namespace

bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out) { return write_bytes(out, bins); }
bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out) {
  return write_bytes(out, tags);
}
void mem_write_bin_stats_in_mib(std::ostream& out) { write_mib(out, bins); }
void mem_write_tag_stats_in_mib(std::ostream& out) { write_mib(out, tags); }
