#include "mem/report/report_set.h"

#include "mem/output/report_directory.h"
#include "mem/state/granularity.h"

namespace {

using FIGURES = MEM_REPORT_FIGURES;
using SINK = MEM_TEXT_SINK;

}  // namespace

void mem_write_site_reports(MEM_REPORT_PLACE place, FIGURES& figures) {
  if (!figures.wanted().sites) return;
  mem_write_report(place, "mem_tbb_fileline.", [&](SINK& sink) {
    const MEM_DUMP_TIMING timing;
    mem_write_fileline(sink, figures.sites_by_peak(), timing);
  });
  mem_write_report(place, "mem_tbb_subsystem.", [&](SINK& sink) {
    const MEM_DUMP_TIMING timing;
    mem_write_subsystem(sink, figures.sites_by_peak(),
                        mem_tracking_library_env_set ? &figures.modules().bytes : nullptr, timing);
  });
  mem_write_report(
      place, "mem_tbb_subsystem_base_addresses.",
      [&](SINK& sink) { mem_write_base_addresses(sink, figures.sites_by_peak()); },
      "unable to create KMP subsystem base addresses file");
}

void mem_write_call_path_report(MEM_REPORT_PLACE place, FIGURES& figures) {
  if (!figures.wanted().call_paths) return;
  mem_write_report(place, "mem_tbb_call_paths.", [&](SINK& sink) {
    mem_write_call_paths(sink, figures.sites_by_peak(), figures.call_paths());
  });
}

void mem_write_auxiliary_report(MEM_REPORT_PLACE place, FIGURES& figures) {
  if (!figures.wanted().auxiliary) return;
  mem_write_report(place, "mem_tbb_auxiliary_timeline.",
                   [&](SINK& sink) { mem_write_auxiliary_timeline(sink, figures.auxiliary()); });
}

void mem_write_module_reports(MEM_REPORT_PLACE place, FIGURES& figures) {
  if (!figures.wanted().modules) return;
  mem_write_report_pair(
      place, "mem_tbb_timeline.", "mem_tbb_timeline_detailed.", [&](SINK& summary, SINK& detailed) {
        const auto& samples = figures.modules();
        mem_write_module_timeline(summary, detailed, samples.bytes, samples.labels);
      });
  mem_write_report_pair(
      place, "mem_tbb_cumulative_blocks_timeline.", "mem_tbb_cumulative_blocks_timeline_detailed.",
      [&](SINK& summary, SINK& detailed) {
        const auto& samples = figures.modules();
        mem_write_module_timeline(summary, detailed, samples.cumulative_blocks, samples.labels);
      });
}

void mem_write_bin_reports(MEM_REPORT_PLACE place, FIGURES& figures) {
  if (!figures.wanted().bins) return;
  mem_write_report_pair(place, "mem_tbb_pbin_tag_timeline.", "mem_tbb_pbin_tag_timeline_detailed.",
                        [&](SINK& summary, SINK& detailed) {
                          mem_write_tag_timeline(summary, detailed, figures.tag_samples());
                        });
  const auto write = [&](char const* prefix, MEM_BIN_FIGURES& (FIGURES::*of)(),
                         void (*report)(SINK&, const MEM_BIN_FIGURES&)) {
    mem_write_report(place, prefix, [&](SINK& sink) { report(sink, (figures.*of)()); });
  };
  write("mem_tbb_pbin_tag_stats.", &FIGURES::tags, mem_write_tag_stats);
  write("mem_tbb_pbin_tag_stats_mb.", &FIGURES::tags, mem_write_tag_stats_in_mib);
  write("mem_tbb_pbin_stats.", &FIGURES::bins, mem_write_bin_stats);
  write("mem_tbb_pbin_stats_mb.", &FIGURES::bins, mem_write_bin_stats_in_mib);
}

void mem_write_filters_report(MEM_REPORT_PLACE place, FIGURES& figures) {
  mem_write_report(
      place, "mem_tbb_filters.",
      [&](SINK& sink) { mem_write_filtered_addresses(sink, figures.sites_by_peak()); },
      "unable to create KMP filters file");
}

void mem_write_run_report(MEM_REPORT_PLACE place, const MEM_REPORTS_WANTED& wanted,
                          char const* ended) {
  if (wanted.any() && mem_report_directory() != nullptr)
    mem_write_report(place, "mem_tbb_run.",
                     [&](SINK& sink) { mem_write_run_file(sink, wanted.granularity, ended); });
}
