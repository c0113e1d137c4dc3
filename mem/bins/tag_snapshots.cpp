#include "mem/bins/tag_snapshots.h"

#include <iostream>
#include <limits>

#include "mem/base/check.h"
#include "mem/base/static_storage.h"
#include "mem/bins/user_memory_tracker.h"

constinit MEM_PB_TAG_SNAPSHOT* mem_pbin_tag_snapshots = nullptr;

namespace {
constinit MEM_STATIC_STORAGE<MEM_PB_TAG_SNAPSHOT> storage;
}

void MEM_PB_TAG_SNAPSHOT::capture() {
  const std::lock_guard snapshots(m_mutex);
  const MEM_PBIN_TRACKER_MAP::WRITER alone(*m_tags);
  const std::uint32_t current_pbin_id = MEM_USER_MEMORY_TRACKER::get_current_pbin_id();
  mem_check(current_pbin_id <= std::numeric_limits<PB_ID>::max(),
            "current_pbin_id <= std::numeric_limits<PB_ID>::max()");
  m_samples.labels.append(static_cast<PB_ID>(current_pbin_id));
  add_sample(m_samples, [](VALUES& values, std::int64_t bytes) { values.append(bytes); });
}

void MEM_PB_TAG_SNAPSHOT::add_now(TABLE& copy) {
  const MEM_PBIN_TRACKER_MAP::WRITER alone(*m_tags);
  if (!can_record_current_bin()) return;
  copy.labels.append_to_copy(static_cast<PB_ID>(MEM_USER_MEMORY_TRACKER::get_current_pbin_id()));
  add_sample(copy, [](VALUES& values, std::int64_t bytes) { values.append_to_copy(bytes); });
}

bool MEM_PB_TAG_SNAPSHOT::can_record_current_bin() {
  return MEM_USER_MEMORY_TRACKER::get_current_pbin_id() <= std::numeric_limits<PB_ID>::max();
}

// A tag first charged now has zeros in the samples before.
void MEM_PB_TAG_SNAPSHOT::add_sample(TABLE& samples,
                                     void (*append)(VALUES& values, std::int64_t bytes)) {
  SERIES& series = samples.series;
  const std::size_t old_num_tags = series.size();
  const std::size_t new_num_tags = m_tags->size();
  mem_check(new_num_tags >= old_num_tags, "new_num_tags >= old_num_tags");
  while (series.size() < new_num_tags) series.emplace_back(samples.sample_count);
  for (std::uint32_t tag = 0; tag < new_num_tags; ++tag)
    append(series[tag], (*m_tags)[tag].current.load(std::memory_order_relaxed));
  ++samples.sample_count;
}

void MEM_PB_TAG_SNAPSHOT::clear() {
  const std::lock_guard snapshots(m_mutex);
  m_samples = {};
}

MEM_PB_TAG_SNAPSHOT::TABLE MEM_PB_TAG_SNAPSHOT::table() {
  const std::lock_guard snapshots(m_mutex);
  return m_samples;
}

std::string_view MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER::operator*() const {
  if (m_left == 0) return label_on_error;
  return MEM_USER_MEMORY_TRACKER::pbin_id_to_string(*m_current);
}

MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER& MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER::operator++() {
  if (m_left == 0) {
    std::cerr << "Mem tracking bin label iter past the end!";
    return *this;
  }
  ++m_current;
  --m_left;
  return *this;
}

constinit const MEM_PART mem_tag_snapshots_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) {
      mem_pbin_tag_snapshots = storage.construct(*mem_pbin_tag_tracker);
    }},
    MEM_RESET{[] { mem_pbin_tag_snapshots->clear(); }},
    MEM_FREE{[] { mem_destroy(mem_pbin_tag_snapshots); }},
    MEM_ABANDON{[] { mem_abandon(mem_pbin_tag_snapshots); }});
