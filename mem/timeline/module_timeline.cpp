#include "mem/timeline/module_timeline.h"

#include <algorithm>

#include "mem/base/static_storage.h"
#include "mem/records/module_map.h"

constinit MEM_MODULE_TIMELINE* mem_module_timeline = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<MEM_MODULE_TIMELINE> storage;

char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

void mem_create_module_timeline() { mem_module_timeline = storage.construct(); }

bool MEM_IGNORING_CASE::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(to_lower(x)) < static_cast<unsigned char>(to_lower(y));
  });
}

void MEM_MODULE_TIMELINE::capture() {
  const std::lock_guard timeline(m_mutex);
  const tbb::spin_mutex::scoped_lock modules(mem_module_tracker_lock);
  if (mem_module_tracker_map == nullptr) return;
  start_sample(m_bytes);
  start_sample(m_cumulative_blocks);
  for (const auto& [name, record] : *mem_module_tracker_map) {
    series_of(m_bytes, name).now += record.current_bytes;
    series_of(m_cumulative_blocks, name).now += static_cast<std::int64_t>(record.cumulative_blocks);
  }
  finish_sample(m_bytes);
  finish_sample(m_cumulative_blocks);
  ++m_sample_count;
}

void MEM_MODULE_TIMELINE::start_sample(SERIES_MAP& series) {
  for (auto& [name, one] : series) one.now = 0;
}

// A new series begins with a zero for every earlier sample.
MEM_MODULE_TIMELINE::SERIES& MEM_MODULE_TIMELINE::series_of(
    SERIES_MAP& series, const MEM_BOOKKEEPING_STRING& module) const {
  const auto found = series.find(module);
  if (found != series.end()) return found->second;
  return series.emplace(module, SERIES{VALUES(m_sample_count)}).first->second;
}

void MEM_MODULE_TIMELINE::finish_sample(SERIES_MAP& series) {
  for (auto& [name, one] : series) one.values.append(one.now);
}

void MEM_MODULE_TIMELINE::clear() {
  const std::lock_guard timeline(m_mutex);
  m_bytes.clear();
  m_cumulative_blocks.clear();
  m_sample_count = 0;
}
