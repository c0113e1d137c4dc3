// The bytes of every tag, and the current bin, at every sample.
#pragma once

#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/timeline/repetitive_vector.h"

class MEM_PB_TAG_SNAPSHOT {
 public:
  using PB_ID = std::uint16_t;
  using VALUES = MEM_REPETITIVE_VECTOR<std::int64_t>;
  using BIN_LABELS = MEM_REPETITIVE_VECTOR<PB_ID>;
  class SNAPSHOT_LABEL_ITER;

  explicit MEM_PB_TAG_SNAPSHOT(MEM_PBIN_TRACKER_MAP& tags) : m_tags(&tags) {}

  /// Takes one sample. A current bin id that is no PB_ID is an internal error. Locks the mutex,
  /// then excludes every thread that charges a tag.
  void capture();
  /// Forgets every sample and every tag's counters, in one step: no capture sees one without the
  /// other.
  void clear_with_tags();

  /// Guards everything below; held by a dump.
  std::mutex& mutex() { return m_mutex; }
  std::uint64_t sample_count() const { return m_sample_count; }
  /// By tag id.
  const std::vector<VALUES, MEM_BOOKKEEPING_ALLOCATOR<VALUES>>& series() const { return m_series; }
  SNAPSHOT_LABEL_ITER first_label() const;

 private:
  void add_new_tags();

  std::vector<VALUES, MEM_BOOKKEEPING_ALLOCATOR<VALUES>> m_series;
  std::uint64_t m_sample_count = 0;
  std::mutex m_mutex;
  BIN_LABELS m_bin_labels;
  MEM_PBIN_TRACKER_MAP* m_tags;
};

/// Yields the decorated name of the bin that was current at each sample. Knows its end: there it
/// yields label_on_error, and a step from there is said on standard error.
class MEM_PB_TAG_SNAPSHOT::SNAPSHOT_LABEL_ITER {
 public:
  explicit SNAPSHOT_LABEL_ITER(const BIN_LABELS& labels)
      : m_current(labels.begin()), m_left(labels.size()) {}

  std::string_view operator*() const;
  SNAPSHOT_LABEL_ITER& operator++();

  static constexpr std::string_view label_on_error = "BinIterError";

 private:
  BIN_LABELS::REPETITIVE_ITERATOR m_current;
  std::uint64_t m_left;
};

/// Null before initialisation; from then to the end of the process. Cleanup empties it.
extern MEM_PB_TAG_SNAPSHOT* mem_pbin_tag_snapshots;

/// After mem_create_pbin_trackers.
void mem_create_tag_snapshots();
