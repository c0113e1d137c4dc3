#include "tools/reports/read_report.h"

#include <istream>

#include "tools/reports/cells.h"

namespace reports {

namespace {

constexpr std::string_view timeline = "MEM: TBB Module Tracking Memory Timeline.";
constexpr std::string_view detailed = "MEM: TBB Module Tracking Detailed Memory Timeline.";

template <auto MEMBER>
bool has(const PROCESS& process) {
  return (process.*MEMBER).has_value();
}
bool has_nothing(const PROCESS&) { return false; }

const REPORT_KIND* kind_of_first_line(std::string_view line) {
  const REPORT_KIND* longest = nullptr;
  for (const REPORT_KIND& kind : report_kinds)
    if (line.starts_with(kind.beginning) &&
        (longest == nullptr || kind.beginning.size() > longest->beginning.size()))
      longest = &kind;
  return longest;
}

}  // namespace

const std::vector<REPORT_KIND> report_kinds = {
    {"mem_tbb_run.", "executable\t", read_run_facts, has_nothing},
    {"mem_tbb_fileline.", "MEM: TBB Fileline Tracking Memory Snapshot.", read_sites, has_nothing},
    {"mem_tbb_subsystem.", "MEM: TBB Subsystem Tracking Memory Snapshot.", read_modules,
     has_nothing},
    {"mem_tbb_subsystem_base_addresses.", "\"base address\",\"module\",\"dll_path\"",
     read_base_addresses, has_nothing},
    {"mem_tbb_leak_warning.", "MEM: TBB Leak Checking Summary.", read_leaks, has_nothing},
    {"mem_tbb_fast_leak_warning.log", "For more detail, use INI mem_check_leaks=on",
     read_leak_summaries, has_nothing},
    {"mem_tbb_pbin_tag_stats.", "Memory Tracking - Profile Tag Stats", read_tags, has_nothing},
    {"mem_tbb_pbin_stats.", "Memory Tracking - Profile Bin Stats", read_bins, has_nothing},
    {"mem_tbb_timeline_detailed.", detailed, read_module_bytes, has_nothing},
    {"mem_tbb_timeline.", timeline, read_module_bytes, has<&PROCESS::module_bytes>},
    {"mem_tbb_cumulative_blocks_timeline_detailed.", detailed, read_module_blocks, has_nothing},
    {"mem_tbb_cumulative_blocks_timeline.", timeline, read_module_blocks,
     has<&PROCESS::module_blocks>},
    {"mem_tbb_pbin_tag_timeline_detailed.", detailed, read_tag_bytes, has_nothing},
    {"mem_tbb_pbin_tag_timeline.", timeline, read_tag_bytes, has<&PROCESS::tag_bytes>},
    {"mem_tbb_auxiliary_timeline.", "MEM: TBB Auxiliary Timeline", read_auxiliary, has_nothing},
    {"mem_tbb_call_paths.", "Call paths\t", read_call_paths, has_nothing},
    // The bytes are in the twins above.
    {"mem_tbb_pbin_stats_mb.", "Memory Tracking - Profile Bin Stats (MiB)", nullptr, has_nothing},
    {"mem_tbb_pbin_tag_stats_mb.", "Memory Tracking - Profile Tag Stats (MiB)", nullptr,
     has_nothing},
    {"mem_tbb_filters.", "\"PC\",\"module\",\"function\",\"fileline\"", nullptr, has_nothing},
    {"mem_allocations.log", "ptr=0x", nullptr, has_nothing},
};

const REPORT_KIND* kind_of_name(std::string_view file_name, std::string& tag) {
  constexpr std::string_view suffix = ".log";
  for (const REPORT_KIND& kind : report_kinds) {
    if (!kind.prefix.ends_with('.')) {
      if (file_name != kind.prefix) continue;
      tag.clear();
      return &kind;
    }
    if (!file_name.starts_with(kind.prefix) || !file_name.ends_with(suffix) ||
        file_name.size() < kind.prefix.size() + suffix.size())
      continue;
    tag =
        file_name.substr(kind.prefix.size(), file_name.size() - kind.prefix.size() - suffix.size());
    return &kind;
  }
  return nullptr;
}

void read_report(std::istream& in, const std::string& path, const REPORT_KIND* kind,
                 PROCESS& process, TEXTS& texts) {
  LINE_READER lines(in, path);
  const auto line = lines.next();
  if (!line) lines.fail("the file is empty");
  const std::string first_line(*line);
  if (kind == nullptr) kind = kind_of_first_line(first_line);
  if (kind == nullptr)
    lines.fail("this is no report of the profiler: it begins with " + quoted(first_line));
  if (!first_line.starts_with(kind->beginning))
    lines.fail("a report of this name begins with " + quoted(kind->beginning) + ", not with " +
               quoted(first_line));
  if (kind->read == nullptr) lines.fail("a report of this kind has no figures that could be shown");
  kind->read(lines, first_line, process, texts);
}

}  // namespace reports
