// The label of the stretch of work that the host is in, recorded with every sample. Relies on
// mem/host, mem/info, mem/state and mem/records, like everything in this folder.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/timeline/repetitive_vector.h"

class MEM_TIMELINE_LABELS {
 public:
  using LABELS = MEM_REPETITIVE_VECTOR<MEM_BOOKKEEPING_STRING>;

  void set_current(std::string_view label);
  /// Records the current label for one sample.
  void capture();
  /// Forgets all labels and the current one.
  void clear();

  /// Guards everything here; a dump holds it while it reads labels().
  tbb::spin_mutex& mutex() { return m_mutex; }
  const LABELS& labels() const { return m_labels; }

 private:
  LABELS m_labels;
  MEM_BOOKKEEPING_STRING m_current;
  tbb::spin_mutex m_mutex;
};

/// Null before initialisation; from then to the end of the process. Cleanup empties it.
extern MEM_TIMELINE_LABELS* mem_timeline_labels;

void mem_create_timeline_labels();
