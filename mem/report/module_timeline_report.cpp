// The timeline of modules.
#include <optional>

#include "include/tuk_mem.h"
#include "mem/report/generic_timeline_dumper.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/module_timeline.h"

namespace {

using TABLE = MEM_MODULE_TIMELINE::TABLE;

std::optional<TABLE> table_so_far() {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_module_timeline == nullptr) return std::nullopt;
  return mem_module_timeline->table();
}

}  // namespace

bool mem_dump_tbb_module_tracking(std::ostream& summary, std::ostream& detailed) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const std::optional<TABLE> table = table_so_far();
  if (!table) return false;
  MEM_TIMELINE_COLUMNS columns;
  for (const auto& [name, series] : table->series) columns.emplace_back(name, series.values);
  return generic_timeline_dumper(summary, detailed, table->labels.size(), std::move(columns),
                                 table->labels.begin());
}
