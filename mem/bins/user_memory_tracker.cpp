#include "mem/bins/user_memory_tracker.h"

#include "mem/base/check.h"
#include "mem/base/static_spin_mutex.h"
#include "mem/base/static_storage.h"
#include "mem/bins/bin_labels.h"

constinit std::atomic<MEM_USER_MEMORY_TRACKER*> MEM_USER_MEMORY_TRACKER::s_instance{nullptr};
constinit bool MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory = false;
constinit bool MEM_USER_MEMORY_TRACKER::s_tbb_track_user_memory_per_bin_detailed = false;

namespace {

constinit MEM_STATIC_STORAGE<MEM_USER_MEMORY_TRACKER> storage;
constinit MEM_STATIC_SPIN_MUTEX creation_lock;

}  // namespace

MEM_USER_MEMORY_TRACKER* MEM_USER_MEMORY_TRACKER::get_instance() {
  if (MEM_USER_MEMORY_TRACKER* instance = s_instance.load(std::memory_order_acquire))
    return instance;
  const tbb::spin_mutex::scoped_lock lock(creation_lock.mutex);
  if (s_instance.load() == nullptr) s_instance = storage.construct();
  return s_instance;
}

void MEM_USER_MEMORY_TRACKER::destroy_instance() {
  const tbb::spin_mutex::scoped_lock lock(creation_lock.mutex);
  if (MEM_USER_MEMORY_TRACKER* instance = s_instance.exchange(nullptr))
    instance->~MEM_USER_MEMORY_TRACKER();
}

void MEM_USER_MEMORY_TRACKER::abandon_instance() {
  s_instance = nullptr;
  creation_lock.unlocked = 0;
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
