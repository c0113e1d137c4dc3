// How much each module held at every sample, and how many blocks it had allocated by then.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/timeline/repetitive_vector.h"

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

  /// Takes one sample of every module record: each series gets exactly one value. Modules whose
  /// names differ only in case are one series; a series without a record now gets 0. Locks the
  /// timeline's mutex, then the module map's lock.
  void capture();
  /// Forgets every series and sample.
  void clear();

  /// Guards everything below; held by a dump.
  std::mutex& mutex() { return m_mutex; }
  std::uint64_t sample_count() const { return m_sample_count; }
  const SERIES_MAP& bytes() const { return m_bytes; }
  const SERIES_MAP& cumulative_blocks() const { return m_cumulative_blocks; }
  /// The series that the next dump prints: the bytes, unless selected otherwise.
  const SERIES_MAP& selected() const { return *m_selected; }
  void select(const SERIES_MAP& series) { m_selected = &series; }

 private:
  void start_sample(SERIES_MAP& series);
  SERIES& series_of(SERIES_MAP& series, const MEM_BOOKKEEPING_STRING& module) const;
  void finish_sample(SERIES_MAP& series);

  SERIES_MAP m_bytes;
  SERIES_MAP m_cumulative_blocks;
  std::uint64_t m_sample_count = 0;
  std::mutex m_mutex;
  const SERIES_MAP* m_selected = &m_bytes;
};

/// Null before initialisation; from then to the end of the process. Cleanup empties it.
extern MEM_MODULE_TIMELINE* mem_module_timeline;

void mem_create_module_timeline();
