#include "mem/bins/user_memory_tracker.h"

#include <mutex>

#include "mem/base/check.h"
#include "mem/base/spin_lock.h"
#include "mem/base/static_storage.h"
#include "mem/bins/bin_labels.h"

constinit std::atomic<MEM_USER_MEMORY_TRACKER*> MEM_USER_MEMORY_TRACKER::s_instance{nullptr};
constinit std::atomic<int> MEM_USER_MEMORY_TRACKER::s_users{0};
constinit std::atomic<bool> MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = false;
constinit std::atomic<bool> MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed =
    false;

namespace {

constinit MEM_STATIC_STORAGE<MEM_USER_MEMORY_TRACKER> storage;
constinit MEM_SPIN_LOCK<MEM_LOCK_ORDER::BIN_REGISTRY> creation_lock;

}  // namespace

MEM_USER_MEMORY_TRACKER* MEM_USER_MEMORY_TRACKER::get_instance() {
  if (MEM_USER_MEMORY_TRACKER* instance = s_instance.load(std::memory_order_acquire))
    return instance;
  const std::lock_guard lock(creation_lock);
  if (s_instance.load() == nullptr) s_instance = storage.construct();
  return s_instance;
}

// Whoever counts as a user after the pointer has gone finds none, or waits to create another.
void MEM_USER_MEMORY_TRACKER::destroy_instance() {
  const std::lock_guard lock(creation_lock);
  MEM_USER_MEMORY_TRACKER* instance = s_instance.exchange(nullptr);
  if (s_users > 0)
    s_instance = instance;
  else
    mem_destroy(instance);
}

void MEM_USER_MEMORY_TRACKER::abandon_instance() {
  MEM_USER_MEMORY_TRACKER* instance = s_instance.exchange(nullptr);
  mem_abandon(instance);
  s_users = 0;
  s_tbb_track_user_memory = false;
  s_tbb_track_user_memory_per_bin_detailed = false;
  creation_lock.abandon();
}

void MEM_PROFILE_BIN_TRACKER_DATA::open() {
  m_start_bytes = static_cast<std::uint64_t>(mem_get_global_current().bytes);
}

void MEM_USER_MEMORY_TRACKER::open_profile_bin(const std::string& tag) {
  stack.emplace_front();
  stack.front().open();
  stack.front().keep_region(mem_enter_local_region());
  mem_open_bin_label(tag);
}

void MEM_USER_MEMORY_TRACKER::close_profile_bin(const std::string& tag, std::uint64_t* start_bytes,
                                                std::uint64_t* end_bytes,
                                                std::uint64_t* peak_bytes) {
  mem_check(!stack.empty(), "!stack.empty()", MEM_SOURCE::profile_bins);
  MEM_PROFILE_BIN_TRACKER_DATA& bin = stack.front();
  *start_bytes = bin.start_bytes();
  *end_bytes = static_cast<std::uint64_t>(mem_get_global_current().bytes);
  *peak_bytes = static_cast<std::uint64_t>(mem_get_local_peak().bytes);
  mem_exit_local_region(bin.saved_region());
  mem_close_bin_label(tag);
  bin.close();
  stack.pop_front();
}

void MEM_USER_MEMORY_TRACKER::open_profile_bin_detailed(const std::string& name,
                                                        const std::string& tag) {
  if (!tag.empty()) m_tags.open(tag);
  m_bins.open(get_decorated_pbin_name(name));
}

void MEM_USER_MEMORY_TRACKER::close_profile_bin_detailed(const std::string& tag) {
  if (!tag.empty()) m_tags.close(tag);
  m_bins.pop();
}

std::uint32_t MEM_USER_MEMORY_TRACKER::get_most_recently_opened_pb_tag() {
  return get_instance()->m_tags.current_id();
}

std::uint32_t MEM_USER_MEMORY_TRACKER::get_current_pbin_id() {
  return get_instance()->m_bins.current_id();
}

const MEM_BOOKKEEPING_STRING& MEM_USER_MEMORY_TRACKER::profile_tag_id_to_string(std::uint32_t id) {
  return get_instance()->m_tags.id_to_name(id);
}

const MEM_BOOKKEEPING_STRING& MEM_USER_MEMORY_TRACKER::pbin_id_to_string(std::uint32_t id) {
  return get_instance()->m_bins.id_to_name(id);
}

MEM_BOOKKEEPING_STRING get_decorated_pbin_name(const std::string& name) {
  MEM_BOOKKEEPING_STRING decorated = MEM_USER_MEMORY_TRACKER::get_instance()->current_tag_name();
  decorated.append("::").append(std::string_view(name));
  return decorated;
}

constinit const MEM_PART mem_bin_registries_part(
    MEM_CREATE{mem_nothing},  // the first bin opened, or block charged, creates them
    MEM_RESET{mem_nothing},   // names and what is open stay
    MEM_FREE{MEM_USER_MEMORY_TRACKER::destroy_instance},
    MEM_ABANDON{MEM_USER_MEMORY_TRACKER::abandon_instance});
