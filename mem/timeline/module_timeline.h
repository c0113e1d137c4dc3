// How much each module held at every sample, and how many blocks it had allocated by then.
#pragma once

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

  /// What dumps and reports print: the samples of one moment.
  struct SAMPLES {
    SERIES_MAP bytes;
    SERIES_MAP cumulative_blocks;
    LABELS labels;  // one for every sample
  };

  /// Takes one sample of every module record, and of the label in force: each series gets exactly
  /// one value. Modules whose names differ only in case are one series; a series without a record
  /// now gets 0. Inside the tracker's lock; locks the timeline's mutex, then the module map's lock.
  void capture();

  /// A copy of all samples. Inside the tracker's lock.
  SAMPLES samples();
  /// Adds this moment to a copy, for which no memory is kept back. Locks the module map's lock.
  static void add_now(SAMPLES& copy);
  /// A copy of the series of bytes.
  SERIES_MAP bytes();
  /// The largest value that any sample of the module holds; none for one without samples.
  static std::optional<std::int64_t> largest(const SERIES_MAP& series, std::string_view module);

 private:
  MEM_ORDERED<MEM_LOCK_ORDER::MODULE_TIMELINE, std::mutex> m_mutex;
  SAMPLES m_samples;
};

/// From initialisation to cleanup.
extern MEM_MODULE_TIMELINE* mem_module_timeline;
extern const MEM_PART mem_module_timeline_part;
