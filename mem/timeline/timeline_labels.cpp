#include "mem/timeline/timeline_labels.h"

#include "include/tuk_mem.h"
#include "mem/base/static_storage.h"
#include "mem/state/thread_flags.h"

constinit MEM_TIMELINE_LABELS* mem_timeline_labels = nullptr;

namespace {
constinit MEM_STATIC_STORAGE<MEM_TIMELINE_LABELS> storage;
}

void mem_create_timeline_labels() { mem_timeline_labels = storage.construct(); }

void MEM_TIMELINE_LABELS::set_current(std::string_view label) {
  const tbb::spin_mutex::scoped_lock lock(m_mutex);
  m_current = label;
}

void MEM_TIMELINE_LABELS::capture() {
  const tbb::spin_mutex::scoped_lock lock(m_mutex);
  m_labels.append(m_current);
}

void MEM_TIMELINE_LABELS::clear() {
  const tbb::spin_mutex::scoped_lock lock(m_mutex);
  m_labels = {};
  m_current.clear();
}

void mem_set_timeline_label(const std::string& label) {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  if (mem_timeline_labels != nullptr)
    mem_timeline_labels->set_current(label);
  else
    mem_msg_vdebug("timeline label \"%s\" is dropped: tracking is not initialised", label.c_str());
}
