#include "mem/bins/bin_labels.h"

#include <atomic>
#include <mutex>
#include <vector>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/lifecycle.h"
#include "mem/base/static_storage.h"
#include "mem/state/tracker_visit.h"
#include "mem/timeline/timeline_labels.h"

namespace {

using LABELS =
    std::vector<MEM_BOOKKEEPING_STRING, MEM_BOOKKEEPING_ALLOCATOR<MEM_BOOKKEEPING_STRING>>;

constinit std::atomic<bool> s_enable_profile_bin_tag_timeline_labels = true;
// The tags whose labels are in force, innermost last. Locked inside the tracker's lock.
constinit MEM_NEVER_DESTROYED<LABELS> label_storage;
constinit LABELS& s_mem_profile_bin_labels = label_storage.object;
constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::BIN_LABELS> labels_lock;

bool may_set_label(const std::string& tag) {
  return s_enable_profile_bin_tag_timeline_labels && !tag.empty() &&
         mem_tracking_is_enabled(MEM_TRACK_PER_LIBRARY);
}

// Changes the list and makes its innermost tag the label, in one step.
template <class CHANGE>
void change_labels(CHANGE change) {
  const MEM_TRACKER_VISIT visit;
  if (!visit || mem_timeline_labels == nullptr) return;
  const std::lock_guard lock(labels_lock);
  change(s_mem_profile_bin_labels);
  mem_timeline_labels->set_current(s_mem_profile_bin_labels.empty()
                                       ? std::string_view()
                                       : std::string_view(s_mem_profile_bin_labels.back()));
}

// A child that needs the list goes on with an empty one; the parent's texts stay where they are.
void abandon() {
  labels_lock.abandon();
  if (!mem_forked_inside) new (&label_storage.object) LABELS;
}

}  // namespace

void mem_open_bin_label(const std::string& tag) {
  if (!may_set_label(tag)) return;
  change_labels([&](LABELS& labels) { labels.emplace_back(std::string_view(tag)); });
}

// A tag that is not the innermost label leaves the labels as they are: hosts close bins of one tag
// under another, and that is no error.
void mem_close_bin_label(const std::string& tag) {
  if (!may_set_label(tag)) return;
  change_labels([&](LABELS& labels) {
    if (!labels.empty() && std::string_view(labels.back()) == tag) labels.pop_back();
  });
}

void mem_clear_bin_labels() {
  const MEM_TRACKER_VISIT visit;
  if (!visit) return;
  const std::lock_guard lock(labels_lock);
  s_mem_profile_bin_labels = {};
}

void mem_disable_profile_bin_tag_timeline_labels() {
  mem_clear_bin_labels();
  s_enable_profile_bin_tag_timeline_labels = false;
}

constinit const MEM_PART mem_bin_labels_part(MEM_CREATE{mem_nothing},  // there since load
                                             MEM_RESET{mem_nothing},   // bins stay open
                                             MEM_FREE{
                                                 mem_nothing},  // static destruction forgets them
                                             MEM_ABANDON{abandon});
