// The timeline of modules.
#include <optional>
#include <ostream>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/report/generic_timeline_dumper.h"
#include "mem/report/reports.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/module_timeline.h"

namespace {

using SAMPLES = MEM_MODULE_TIMELINE::SAMPLES;

std::optional<SAMPLES> samples_so_far() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_module_timeline == nullptr) return std::nullopt;
  return mem_module_timeline->samples();
}

}  // namespace

void mem_write_module_timeline(MEM_TEXT_SINK& summary, MEM_TEXT_SINK& detailed,
                               const MEM_MODULE_TIMELINE::SERIES_MAP& series,
                               const MEM_MODULE_TIMELINE::LABELS& labels) {
  MEM_TIMELINE_COLUMNS columns;
  for (const auto& [name, one] : series) columns.emplace_back(name, one.values);
  generic_timeline_dumper(summary, detailed, labels.size(), std::move(columns), labels.begin());
}

bool mem_dump_tbb_module_tracking(std::ostream& summary, std::ostream& detailed) {
  if (!summary || !detailed) return false;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const std::optional<SAMPLES> samples = samples_so_far();
  if (!samples) return false;
  MEM_STREAM_SINK summary_sink(summary);
  MEM_STREAM_SINK detailed_sink(detailed);
  mem_write_module_timeline(summary_sink, detailed_sink, samples->bytes, samples->labels);
  return true;
}
