// Profile bins as the host opens and closes them. Relies on mem/base, mem/state and
// mem/timeline, like everything in this folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <forward_list>
#include <string>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/bins/bin_names.h"

/// One open summary bin.
class MEM_PROFILE_BIN_TRACKER_DATA {
 public:
  void open();
  void close() {}
  std::uint64_t start_bytes() const { return m_start_bytes; }
  const MEM_BASE_STATS& saved_region() const { return m_saved_region; }
  void keep_region(const MEM_BASE_STATS& saved) { m_saved_region = saved; }

 private:
  std::uint64_t m_start_bytes = 0;
  MEM_BASE_STATS m_saved_region{};  // the enclosing local peak, handed back at the close
};

/// The open bins, and the names of all bins and tags. Bins are opened and closed by the host's main
/// thread, without a lock; any thread may ask for the current ids and for names.
class MEM_USER_MEMORY_TRACKER {
 public:
  /// The singleton, created at the first call and, if somebody asks for it still, after
  /// destroy_instance().
  static MEM_USER_MEMORY_TRACKER* get_instance();
  static void init_when_necessary() { get_instance(); }
  /// Ends it, unless somebody has it in use: then it stays to the end of the process.
  static void destroy_instance();
  /// Drops it as it is, in a child made by fork.
  static void abandon_instance();

  /// Keeps the instance from being destroyed, for a scope. By a count, not by a lock: a bin closed
  /// wrongly ends the process, in here, and the end must not wait for itself.
  class IN_USE {
   public:
    IN_USE() { ++s_users; }
    IN_USE(const IN_USE&) = delete;
    IN_USE& operator=(const IN_USE&) = delete;
    ~IN_USE() { --s_users; }
  };

  /// A summary bin measures the process's bytes from its opening to its close.
  void open_profile_bin(const std::string& tag);
  void close_profile_bin(const std::string& tag, std::uint64_t* start_bytes,
                         std::uint64_t* end_bytes, std::uint64_t* peak_bytes);
  /// A detailed bin is charged with every block allocated while it is the current one. An empty tag
  /// leaves it under the enclosing tag. A close names the tag only: tags must nest, the bin is the
  /// one opened last.
  void open_profile_bin_detailed(const std::string& name, const std::string& tag);
  void close_profile_bin_detailed(const std::string& tag);

  static std::uint32_t get_most_recently_opened_pb_tag();
  static std::uint32_t get_current_pbin_id();
  /// Throw std::out_of_range for an id that was never given.
  static const MEM_BOOKKEEPING_STRING& profile_tag_id_to_string(std::uint32_t id);
  static const MEM_BOOKKEEPING_STRING& pbin_id_to_string(std::uint32_t id);

  const MEM_BOOKKEEPING_STRING& current_tag_name() const { return m_tags.get_curr_name(); }

  /// Summary bins are on.
  static std::atomic<bool> s_tbb_track_user_memory;
  /// Every block is charged to its bin and tag.
  static std::atomic<bool> s_tbb_track_user_memory_per_bin_detailed;

 private:
  static std::atomic<MEM_USER_MEMORY_TRACKER*> s_instance;
  static std::atomic<int> s_users;

  std::forward_list<MEM_PROFILE_BIN_TRACKER_DATA,
                    MEM_BOOKKEEPING_ALLOCATOR<MEM_PROFILE_BIN_TRACKER_DATA>>
      stack;  // newest first
  MEM_BIN_NAME_MGR<std::uint32_t> m_tags;
  MEM_BIN_NAME_MGR<std::uint32_t> m_bins;  // by decorated name
};

/// The registries' life: created when they are first asked for.
extern const MEM_PART mem_bin_registries_part;

/// The name a bin is counted under: the current tag's name, "::", the bin's name.
MEM_BOOKKEEPING_STRING get_decorated_pbin_name(const std::string& name);
