// The bytes of every tag, and the current bin, at every sample.
#pragma once

#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"
#include "mem/bins/pbin_tracker_map.h"
#include "mem/timeline/repetitive_vector.h"

/// Called inside the tracker's lock.
class MEM_PB_TAG_SNAPSHOT {
 public:
  using PB_ID = std::uint16_t;
  using VALUES = MEM_REPETITIVE_VECTOR<std::int64_t>;
  using SERIES = std::vector<VALUES, MEM_BOOKKEEPING_ALLOCATOR<VALUES>>;
  using BIN_LABELS = MEM_REPETITIVE_VECTOR<PB_ID>;
  class SNAPSHOT_LABEL_ITER;

  /// What a dump prints: the samples of one moment.
  struct TABLE {
    SERIES series;  // by tag id
    BIN_LABELS labels;
    std::uint64_t sample_count = 0;
  };

  explicit MEM_PB_TAG_SNAPSHOT(MEM_PBIN_TRACKER_MAP& tags) : m_tags(&tags) {}

  /// Takes one sample. A current bin id that is no PB_ID is an internal error. Locks the mutex,
  /// then excludes every thread that charges a tag.
  void capture();
  /// Whether the bin that is open now can be recorded by capture().
  static bool can_record_current_bin();
  /// Forgets every sample.
  void clear();
  TABLE table();
  /// Adds this moment to a copy, for which no memory is kept back; not where the open bin can't be
  /// recorded. Excludes every thread that charges a tag.
  void add_now(TABLE& copy);

 private:
  void add_sample(TABLE& samples, void (*append)(VALUES& values, std::int64_t bytes));

  MEM_ORDERED<MEM_LOCK_ORDER::TAG_SNAPSHOTS, std::mutex> m_mutex;
  TABLE m_samples;
  MEM_PBIN_TRACKER_MAP* m_tags;
};

/// Yields the decorated name of the bin that was current at each sample, while the registry of bins
/// is in use. Knows its end: there it yields label_on_error, and a step from there is said on
/// standard error.
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

/// From initialisation to cleanup.
extern MEM_PB_TAG_SNAPSHOT* mem_pbin_tag_snapshots;
/// After the tags' counters.
extern const MEM_PART mem_tag_snapshots_part;
