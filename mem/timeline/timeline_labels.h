// The label of the stretch of work that the host is in, recorded with every sample. Relies on
// mem/base, mem/state, mem/info and mem/records, like everything in this folder.
#pragma once

#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"
#include "mem/timeline/repetitive_vector.h"

/// Every operation locks. Called inside the tracker's lock.
class MEM_TIMELINE_LABELS {
 public:
  using LABELS = MEM_REPETITIVE_VECTOR<MEM_BOOKKEEPING_STRING>;

  void set_current(std::string_view label);
  MEM_BOOKKEEPING_STRING current();
  /// Records the current label for one sample.
  void capture();

 private:
  LABELS m_labels;
  MEM_BOOKKEEPING_STRING m_current;
  MEM_SPIN_LOCK<MEM_LOCK_ORDER::LABELS> m_mutex;
};

/// From initialisation to cleanup.
extern MEM_TIMELINE_LABELS* mem_timeline_labels;
extern const MEM_PART mem_timeline_labels_part;
