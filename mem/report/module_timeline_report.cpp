// The timeline of modules.
#include <mutex>
#include <ostream>

#include "include/tuk_mem.h"
#include "mem/report/generic_timeline_dumper.h"
#include "mem/state/thread_flags.h"
#include "mem/timeline/module_timeline.h"
#include "mem/timeline/timeline_labels.h"

namespace {

// The labels of the first samples, then empty ones: there may be fewer labels than samples where
// library tracking was switched on and off.
class LABELS_AND_MORE {
 public:
  explicit LABELS_AND_MORE(const MEM_TIMELINE_LABELS::LABELS& labels)
      : m_current(labels.begin()), m_left(labels.size()) {}

  std::string_view operator*() const {
    return m_left == 0 ? std::string_view() : std::string_view(*m_current);
  }
  LABELS_AND_MORE& operator++() {
    if (m_left == 0) return *this;
    ++m_current;
    --m_left;
    return *this;
  }

 private:
  MEM_TIMELINE_LABELS::LABELS::REPETITIVE_ITERATOR m_current;
  std::uint64_t m_left;
};

}  // namespace

bool mem_dump_tbb_module_tracking(std::ostream& summary, std::ostream& detailed) {
  if (mem_module_timeline == nullptr) return false;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  const std::lock_guard timeline(mem_module_timeline->mutex());
  const std::lock_guard labels(mem_timeline_labels->mutex());
  std::vector<MEM_TIMELINE_COLUMN> columns;
  for (const auto& [name, series] : mem_module_timeline->selected())
    columns.emplace_back(name, series.values);
  return generic_timeline_dumper(summary, detailed, mem_module_timeline->sample_count(),
                                 std::move(columns),
                                 LABELS_AND_MORE(mem_timeline_labels->labels()));
}
