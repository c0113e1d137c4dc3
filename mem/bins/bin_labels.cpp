#include "mem/bins/bin_labels.h"

#include <vector>

#include "include/tuk_mem.h"
#include "mem/base/static_storage.h"
#include "mem/state/thread_flags.h"

namespace {

constinit bool s_enable_profile_bin_tag_timeline_labels = true;
// The tags whose labels are in force, innermost last.
constinit MEM_NEVER_DESTROYED<std::vector<std::string>> label_storage;
constinit std::vector<std::string>& s_mem_profile_bin_labels = label_storage.object;

bool may_set_label(const std::string& tag) {
  return s_enable_profile_bin_tag_timeline_labels && !tag.empty() &&
         mem_tracking_is_enabled(MEM_TRACK_PER_LIBRARY);
}

void set_innermost_label() {
  mem_set_timeline_label(s_mem_profile_bin_labels.empty() ? std::string()
                                                          : s_mem_profile_bin_labels.back());
}

}  // namespace

void mem_open_bin_label(const std::string& tag) {
  if (!may_set_label(tag)) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  s_mem_profile_bin_labels.push_back(tag);
  set_innermost_label();
}

// A tag that is not the innermost label leaves the labels as they are, deliberately.
void mem_close_bin_label(const std::string& tag) {
  if (!may_set_label(tag)) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  if (!s_mem_profile_bin_labels.empty() && s_mem_profile_bin_labels.back() == tag)
    s_mem_profile_bin_labels.pop_back();
  set_innermost_label();
}

void mem_clear_bin_labels() {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  s_mem_profile_bin_labels = {};
}

void mem_disable_profile_bin_tag_timeline_labels() {
  mem_clear_bin_labels();
  s_enable_profile_bin_tag_timeline_labels = false;
}
