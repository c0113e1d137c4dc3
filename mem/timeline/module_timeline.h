// How much each module held at every sample, and how many blocks it had allocated by then.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"
#include "mem/timeline/repetitive_vector.h"
#include "mem/timeline/timeline_labels.h"

/// Orders names without regard to the case of ASCII letters.
struct MEM_IGNORING_CASE {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

class MEM_MODULE_TIMELINE {
 public:
  using VALUES = MEM_REPETITIVE_VECTOR<std::int64_t>;
  struct SERIES {
    VALUES values;
    std::int64_t now = 0;  // of the sample being taken
  };
  using SERIES_MAP =
      std::map<MEM_BOOKKEEPING_STRING, SERIES, MEM_IGNORING_CASE,
               MEM_BOOKKEEPING_ALLOCATOR<std::pair<const MEM_BOOKKEEPING_STRING, SERIES>>>;

  using LABELS = MEM_TIMELINE_LABELS::LABELS;

  /// What a dump prints: the samples of one moment.
  struct TABLE {
    SERIES_MAP series;
    LABELS labels;  // one for every sample
  };

  /// Takes one sample of every module record, and of the label in force: each series gets exactly
  /// one value. Modules whose names differ only in case are one series; a series without a record
  /// now gets 0. Inside the tracker's lock; locks the timeline's mutex, then the module map's lock.
  void capture();

  /// A copy of the selected series and its labels. Inside the tracker's lock.
  TABLE table();
  /// The largest number of bytes that any sample of the module holds; none for one without samples.
  std::optional<std::int64_t> largest_bytes(std::string_view module);
  std::uint64_t sample_count() const { return m_labels.size(); }

  enum class SELECTION { BYTES, CUMULATIVE_BLOCKS };
  /// The series that the next dump prints: the bytes, unless selected otherwise.
  void select(SELECTION selection) { m_selection = selection; }

 private:
  void start_sample(SERIES_MAP& series);
  SERIES& series_of(SERIES_MAP& series, const MEM_BOOKKEEPING_STRING& module) const;
  void finish_sample(SERIES_MAP& series);

  MEM_ORDERED<MEM_LOCK_ORDER::MODULE_TIMELINE, std::mutex> m_mutex;
  SERIES_MAP m_bytes;
  SERIES_MAP m_cumulative_blocks;
  LABELS m_labels;
  std::atomic<SELECTION> m_selection = SELECTION::BYTES;
};

/// From initialisation to cleanup.
extern MEM_MODULE_TIMELINE* mem_module_timeline;
extern const MEM_PART mem_module_timeline_part;

/// Another series is selected for a scope, then the bytes again.
class MEM_SERIES_SELECTED {
 public:
  explicit MEM_SERIES_SELECTED(MEM_MODULE_TIMELINE::SELECTION selection) {
    mem_module_timeline->select(selection);
  }
  MEM_SERIES_SELECTED(const MEM_SERIES_SELECTED&) = delete;
  MEM_SERIES_SELECTED& operator=(const MEM_SERIES_SELECTED&) = delete;
  ~MEM_SERIES_SELECTED() { mem_module_timeline->select(MEM_MODULE_TIMELINE::SELECTION::BYTES); }
};
