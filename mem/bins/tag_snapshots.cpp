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

void mem_create_tag_snapshots() {
  mem_pbin_tag_snapshots = storage.construct(*mem_pbin_tag_tracker);
}

void MEM_PB_TAG_SNAPSHOT::capture() {
  const std::lock_guard snapshots(m_mutex);
  const MEM_PBIN_TRACKER_MAP::WRITER alone(*m_tags);
  const std::uint32_t current_pbin_id = MEM_USER_MEMORY_TRACKER::get_current_pbin_id();
  mem_check(current_pbin_id <= std::numeric_limits<PB_ID>::max(),
            "current_pbin_id <= std::numeric_limits<PB_ID>::max()");
  m_bin_labels.append(static_cast<PB_ID>(current_pbin_id));
  add_new_tags();
  for (std::uint32_t tag = 0; tag < m_tags->size(); ++tag)
    m_series[tag].append((*m_tags)[tag].current.load(std::memory_order_relaxed));
  ++m_sample_count;
}

// A tag first charged now has zeros in the samples before.
void MEM_PB_TAG_SNAPSHOT::add_new_tags() {
  const std::size_t old_num_tags = m_series.size();
  const std::size_t new_num_tags = m_tags->size();
  mem_check(new_num_tags >= old_num_tags, "new_num_tags >= old_num_tags");
  while (m_series.size() < new_num_tags) m_series.emplace_back(m_sample_count);
}

void MEM_PB_TAG_SNAPSHOT::clear_with_tags() {
  const std::lock_guard snapshots(m_mutex);
  m_tags->clear();
  m_series.clear();
  m_bin_labels = {};
  m_sample_count = 0;
}

MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER MEM_PB_TAG_SNAPSHOT::first_label() const {
  return SNAPSHOT_LABEL_ITER(m_bin_labels);
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
