#include "mem/timeline/timeline_labels.h"

#include <mutex>

#include "include/tuk_mem.h"
#include "mem/base/static_storage.h"
#include "mem/state/tracker_visit.h"

constinit MEM_TIMELINE_LABELS* mem_timeline_labels = nullptr;

namespace {

constinit MEM_STATIC_STORAGE<MEM_TIMELINE_LABELS> storage;

// False when there is no timeline to label.
bool set_label(const std::string& label) {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_timeline_labels == nullptr) return false;
  mem_timeline_labels->set_current(label);
  return true;
}

}  // namespace

void MEM_TIMELINE_LABELS::set_current(std::string_view label) {
  const std::lock_guard lock(m_mutex);
  m_current = label;
}

MEM_BOOKKEEPING_STRING MEM_TIMELINE_LABELS::current() {
  const std::lock_guard lock(m_mutex);
  return m_current;
}

void MEM_TIMELINE_LABELS::capture() {
  const std::lock_guard lock(m_mutex);
  m_labels.append(m_current);
}

void mem_set_timeline_label(const std::string& label) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  if (!set_label(label))
    mem_msg_vdebug("timeline label \"%s\" is dropped: nothing is being recorded", label.c_str());
}

constinit const MEM_PART mem_timeline_labels_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_timeline_labels = storage.construct(); }},
    MEM_RESET{mem_nothing},  // a timeline spans resets
    MEM_FREE{[] { mem_destroy(mem_timeline_labels); }},
    MEM_ABANDON{[] { mem_abandon(mem_timeline_labels); }});
