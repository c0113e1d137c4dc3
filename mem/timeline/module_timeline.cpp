#include "mem/timeline/module_timeline.h"

#include <algorithm>

#include "mem/base/static_storage.h"
#include "mem/records/module_map.h"

constinit MEM_MODULE_TIMELINE* mem_module_timeline = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<MEM_MODULE_TIMELINE> storage;

char to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

using SERIES = MEM_MODULE_TIMELINE::SERIES;
using SERIES_MAP = MEM_MODULE_TIMELINE::SERIES_MAP;
using SAMPLES = MEM_MODULE_TIMELINE::SAMPLES;

// A new series begins with a zero for every earlier sample.
SERIES& series_of(SERIES_MAP& series, const MEM_BOOKKEEPING_STRING& module,
                  std::uint64_t sample_count) {
  const auto found = series.find(module);
  if (found != series.end()) return found->second;
  return series.emplace(module, SERIES{MEM_MODULE_TIMELINE::VALUES(sample_count)}).first->second;
}

// Adds up what each series holds now. Hold the module map's lock.
void look_at_modules(SAMPLES& samples) {
  for (SERIES_MAP* series : {&samples.bytes, &samples.cumulative_blocks})
    for (auto& [name, one] : *series) one.now = 0;
  const std::uint64_t count = samples.labels.size();
  for (const auto& [name, record] : *mem_module_tracker_map) {
    series_of(samples.bytes, name, count).now += record.current_bytes;
    series_of(samples.cumulative_blocks, name, count).now +=
        static_cast<std::int64_t>(record.cumulative_blocks);
  }
}

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
  look_at_modules(m_samples);
  for (SERIES_MAP* series : {&m_samples.bytes, &m_samples.cumulative_blocks})
    for (auto& [name, one] : *series) one.values.append(one.now);
  m_samples.labels.append(label);
}

SAMPLES MEM_MODULE_TIMELINE::samples() {
  const std::lock_guard timeline(m_mutex);
  return m_samples;
}

void MEM_MODULE_TIMELINE::add_now(SAMPLES& copy) {
  const MEM_BOOKKEEPING_STRING label = mem_timeline_labels->current();
  const std::lock_guard modules(mem_module_tracker_lock);
  look_at_modules(copy);
  for (SERIES_MAP* series : {&copy.bytes, &copy.cumulative_blocks})
    for (auto& [name, one] : *series) one.values.append_to_copy(one.now);
  copy.labels.append_to_copy(label);
}

MEM_MODULE_TIMELINE::SERIES_MAP MEM_MODULE_TIMELINE::bytes() {
  const std::lock_guard timeline(m_mutex);
  return m_samples.bytes;
}

std::optional<std::int64_t> MEM_MODULE_TIMELINE::largest(const SERIES_MAP& series,
                                                         std::string_view module) {
  const auto found = series.find(module);
  if (found == series.end() || found->second.values.size() == 0) return std::nullopt;
  return found->second.values.largest();
}

constinit const MEM_PART mem_module_timeline_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_module_timeline = storage.construct(); }},
    MEM_RESET{mem_nothing},  // a timeline spans resets
    MEM_FREE{[] { mem_destroy(mem_module_timeline); }},
    MEM_ABANDON{[] { mem_abandon(mem_module_timeline); }});
