#include "mem/records/site_snapshot.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "mem/records/counters.h"
#include "mem/state/totals.h"
#include "mem/state/tracker_visit.h"

MEM_SITE_SNAPSHOT::MEM_SITE_SNAPSHOT() {
  const MEM_TRACKER_VISIT_ALONE visit;
  m_is_refused = !visit && mem_visit_is_refused();
  if (!visit || mem_address_tracker_map == nullptr) return;
  const std::lock_guard trace(mem_trace_lock);
  m_texts.emplace();
  m_index_at_peak = mem_estimated_timeline_idx_at_peak;
  m_rows.reserve(mem_address_tracker_map->size() + mem_retired_sites->size());
  mem_for_each_site([&](void const* address, const MEM_ADDRESS_TRACKER& site) {
    m_rows.push_back({address, site, &site});
  });
}

void MEM_SITE_SNAPSHOT::sort_by_peak() {
  const auto key = [](const MEM_SITE_ROW& row) {
    return std::make_pair(mem_report_order(row.counters), row.address);
  };
  std::sort(m_rows.begin(), m_rows.end(),
            [&](const MEM_SITE_ROW& a, const MEM_SITE_ROW& b) { return key(a) < key(b); });
}
