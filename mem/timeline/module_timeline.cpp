#include "mem/timeline/module_timeline.h"

#include <algorithm>

#include "mem/base/static_storage.h"
#include "mem/records/module_map.h"

constinit MEM_MODULE_TIMELINE* mem_module_timeline = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<MEM_MODULE_TIMELINE> storage;

char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool MEM_IGNORING_CASE::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(to_lower(x)) < static_cast<unsigned char>(to_lower(y));
  });
}

void MEM_MODULE_TIMELINE::capture() {
  const MEM_BOOKKEEPING_STRING label = mem_timeline_labels->current();
  const std::lock_guard timeline(m_mutex);
  const std::lock_guard modules(mem_module_tracker_lock);
  start_sample(m_bytes);
  start_sample(m_cumulative_blocks);
  for (const auto& [name, record] : *mem_module_tracker_map) {
    series_of(m_bytes, name).now += record.current_bytes;
    series_of(m_cumulative_blocks, name).now += static_cast<std::int64_t>(record.cumulative_blocks);
  }
  finish_sample(m_bytes);
  finish_sample(m_cumulative_blocks);
  m_labels.append(label);
}

void MEM_MODULE_TIMELINE::start_sample(SERIES_MAP& series) {
  for (auto& [name, one] : series) one.now = 0;
}

// A new series begins with a zero for every earlier sample.
MEM_MODULE_TIMELINE::SERIES& MEM_MODULE_TIMELINE::series_of(
    SERIES_MAP& series, const MEM_BOOKKEEPING_STRING& module) const {
  const auto found = series.find(module);
  if (found != series.end()) return found->second;
  return series.emplace(module, SERIES{VALUES(sample_count())}).first->second;
}

void MEM_MODULE_TIMELINE::finish_sample(SERIES_MAP& series) {
  for (auto& [name, one] : series) one.values.append(one.now);
}

MEM_MODULE_TIMELINE::TABLE MEM_MODULE_TIMELINE::table() {
  const std::lock_guard timeline(m_mutex);
  return {m_selection == SELECTION::BYTES ? m_bytes : m_cumulative_blocks, m_labels};
}

std::optional<std::int64_t> MEM_MODULE_TIMELINE::largest_bytes(std::string_view module) {
  const std::lock_guard timeline(m_mutex);
  const auto series = m_bytes.find(module);
  if (series == m_bytes.end() || series->second.values.size() == 0) return std::nullopt;
  return series->second.values.largest();
}

constinit const MEM_PART mem_module_timeline_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_module_timeline = storage.construct(); }},
    MEM_RESET{mem_nothing},  // a timeline spans resets
    MEM_FREE{[] { mem_destroy(mem_module_timeline); }},
    MEM_ABANDON{[] { mem_abandon(mem_module_timeline); }});
