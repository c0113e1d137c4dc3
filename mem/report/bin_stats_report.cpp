// The counters of profile bins and tags.
#include <iomanip>
#include <ostream>

#include "include/tuk_mem.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/bins/user_memory_tracker.h"
#include "mem/report/shutdown_reports.h"
#include "mem/state/thread_flags.h"

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

// Deliberately not in the order of the fields.
constexpr std::atomic<std::int64_t> MEM_PBIN_TRACKER_ENTRY::*columns[] = {
    &MEM_PBIN_TRACKER_ENTRY::max, &MEM_PBIN_TRACKER_ENTRY::peak,
    &MEM_PBIN_TRACKER_ENTRY::cumulative, &MEM_PBIN_TRACKER_ENTRY::current};

void print_bytes(std::ostream& out, std::int64_t bytes) { out << bytes; }

void print_mib(std::ostream& out, std::int64_t bytes) {
  constexpr double mib_per_byte = 9.5367431640625e-7;
  out << static_cast<double>(bytes) * mib_per_byte;
}

void write_rows(std::ostream& out, const KIND& kind, void (*print)(std::ostream&, std::int64_t)) {
  const MEM_PBIN_TRACKER_MAP* counters = *kind.counters;
  if (counters == nullptr) return;
  const std::uint32_t rows = counters->size();
  for (std::uint32_t id = 0; id < rows; ++id) {
    out << kind.name(id);
    for (const auto column : columns) {
      out << '\t';
      print(out, ((*counters)[id].*column).load());
    }
    out << '\n';
  }
}

bool write_bytes(std::ostream& out, const KIND& kind) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  out << kind.title << "\n\n"
      << "Name\tMax bytes\tPeak bytes\tCumulative bytes\tCurrent bytes\n";
  write_rows(out, kind, print_bytes);
  return true;
}

void write_mib(std::ostream& out, const KIND& kind) {
  const std::ios_base::fmtflags flags = out.flags();
  const std::streamsize precision = out.precision();
  out << kind.title << " (MiB)\n\n"
      << "Name\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n"
      << std::fixed << std::setprecision(3);
  write_rows(out, kind, print_mib);
  out.flags(flags);
  out.precision(precision);
}

}  // namespace

bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out) { return write_bytes(out, bins); }
bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out) {
  return write_bytes(out, tags);
}
void mem_write_bin_stats_in_mib(std::ostream& out) { write_mib(out, bins); }
void mem_write_tag_stats_in_mib(std::ostream& out) { write_mib(out, tags); }
